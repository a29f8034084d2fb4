#include "tools/run_follower.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "simulcast/capture_records.h"
#include "simulcast/simulcast_reader.h"
#include "system/ipc/named_objects.h"
#include "tools/follow_stats.h"
#include "tools/format_geometry.h"
#include "tools/media_files.h"

namespace ovtx::tools::simulcast_follow::v1 {

namespace {

namespace records = simulcast::capture_records::v1;
namespace ipc = system::ipc::v2;
using simulcast::simulcast_channel::v1::SimulcastReader;

constexpr auto kOpenRetryPause = std::chrono::milliseconds(50);
constexpr auto kStopPoll = std::chrono::milliseconds(20);

// The run's format block, read under its mutex; code -1 when it can't be read.
records::FormatBlock readFormatBlock(const std::string& portName) {
    const std::string base = records::channelName(records::kVideoFormatPrefix, portName);
    records::FormatBlock block{-1, 0};
    auto mapping = ipc::NamedMapping::createOrJoin(base + "_mapping", sizeof block);
    auto mutex = ipc::NamedMutex::createOrJoin(base + "_mutex");
    auto view = ipc::MappedView::map(mapping, sizeof block, ipc::MappedView::Access::ReadOnly);
    if (view.valid() && mutex.valid() && mutex.lock()) {
        std::memcpy(&block, view.data(), sizeof block);
        mutex.unlock();
    }
    return block;
}

// The portName a channel's name ends in; the name itself when it has no prefix of a run.
std::string portOfChannel(const std::string& name) {
    for (std::string_view prefix :
         {records::kVideoPrefix, records::kAudioPrefix, records::kCaptionPrefix, records::kTeletextPrefix}) {
        if (name.starts_with(prefix)) {
            return name.substr(prefix.size());
        }
    }
    return name;
}

// The number of the frame that starts at `start`; -1 for an unknown format.
std::int64_t frameNumberAt(std::int64_t start, std::int32_t formatCode) {
    const auto geometry = formatGeometry(formatCode);
    if (!geometry || start < 0) {
        return -1;
    }
    // Frame n starts at floor(n × 10^7 × den / num): the smallest n whose start is not before `start`.
    auto n = static_cast<std::int64_t>(
        static_cast<long double>(start) * geometry->rateNumerator /
        (static_cast<long double>(records::kTimeUnitsPerSecond) * geometry->rateDenominator));
    while (n > 0 &&
           records::frameStartTime(n - 1, geometry->rateNumerator, geometry->rateDenominator) >= start) {
        --n;
    }
    while (records::frameStartTime(n, geometry->rateNumerator, geometry->rateDenominator) < start) {
        ++n;
    }
    return n;
}

// Where the dumps of several channels start: at the latest of their first records, so that all
// of them begin with the same frame.
class AlignmentGate {
  public:
    static constexpr auto kSlowNotice = std::chrono::seconds(3);

    explicit AlignmentGate(std::vector<std::string> channels) : m_waiting(std::move(channels)) {}

    // The first start time of `channel`; waits for the others and returns the common start, or
    // nothing on a stop. The last one to come runs `onComplete` first. A wait that lasts runs
    // `onSlow` once with the channels still to come.
    template <typename OnComplete, typename OnSlow>
    std::optional<std::int64_t> join(const std::string& channel, std::int64_t firstStart,
                                     const std::atomic<bool>& stop, OnComplete onComplete, OnSlow onSlow) {
        std::unique_lock lock(m_mutex);
        m_origin = std::max(m_origin.value_or(firstStart), firstStart);
        std::erase(m_waiting, channel);
        if (m_waiting.empty()) {
            onComplete(*m_origin);
            m_done.notify_all();
            return m_origin;
        }
        const auto slow = std::chrono::steady_clock::now() + kSlowNotice;
        while (!m_waiting.empty()) {
            if (stop.load()) {
                return std::nullopt;
            }
            if (!m_toldSlow && std::chrono::steady_clock::now() >= slow) {
                m_toldSlow = true;
                std::string missing;
                for (const std::string& name : m_waiting) {
                    missing += (missing.empty() ? "" : ", ") + name;
                }
                onSlow(missing);
            }
            m_done.wait_for(lock, kStopPoll);
        }
        return m_origin;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    std::vector<std::string> m_waiting;
    std::optional<std::int64_t> m_origin;
    bool m_toldSlow = false;
};

struct Channel {
    Channel(std::string channelName, RecordKind recordKind)
        : name(std::move(channelName)), kind(recordKind), stats(kind) {}

    std::string name;
    RecordKind kind;
    std::unique_ptr<ChannelDump> dump;
    bool dumping = false;      // the dump has reached the common first frame
    DumpContext context;       // the common origin, and the format block as of the last restart
    std::int64_t lastEnd = 0;  // of the last record dumped
    ChannelStats stats;
    std::optional<std::string> toldOpenState;  // why the channel can't be opened, as last told
};

std::vector<std::unique_ptr<Channel>> channelsOf(const FollowOptions& options) {
    std::vector<std::unique_ptr<Channel>> channels;
    if (!options.channel.empty()) {
        channels.push_back(std::make_unique<Channel>(options.channel,
                                                     options.kind.value_or(kindOfChannel(options.channel))));
        return channels;
    }
    channels.push_back(std::make_unique<Channel>(
        records::channelName(records::kVideoPrefix, options.portName), RecordKind::Video));
    channels.push_back(std::make_unique<Channel>(
        records::channelName(records::kAudioPrefix, options.portName), RecordKind::Audio));
    channels.push_back(std::make_unique<Channel>(
        records::channelName(records::kCaptionPrefix, options.portName), RecordKind::Captions));
    channels.push_back(std::make_unique<Channel>(
        records::channelName(records::kTeletextPrefix, options.portName), RecordKind::Teletext));
    return channels;
}

// Everything the channel threads share: output, counters, the dumps and where they start.
class FollowSession {
  public:
    FollowSession(const FollowOptions& options, std::ostream& out, std::ostream& err, std::atomic<bool>& stop)
        : m_options(options),
          m_text(writesToStandardOutput(options.dumps) ? err : out),
          m_err(err),
          m_stop(stop),
          m_recordLines(!options.quiet && !options.stats && !writesToStandardOutput(options.dumps)),
          m_channels(channelsOf(options)) {}

    // Creates the dumps and their files; false with the reason told when one can't be.
    bool openDumps() {
        std::vector<std::string> withDump;
        for (RecordKind kind :
             {RecordKind::Video, RecordKind::Audio, RecordKind::Captions, RecordKind::Teletext}) {
            auto dump =
                makeChannelDump(kind, m_options.dumps, [this](const std::string& text) { say(text); });
            if (!dump) {
                continue;
            }
            auto channel = std::find_if(m_channels.begin(), m_channels.end(),
                                        [kind](const auto& c) { return c->kind == kind; });
            if (channel == m_channels.end()) {
                m_err << "simulcast_follow: " << kindName(kind) << " files need a " << kindName(kind)
                      << " channel to follow" << std::endl;
                return false;
            }
            std::string error;
            if (!dump->open(error)) {
                m_err << "simulcast_follow: " << error << std::endl;
                return false;
            }
            (*channel)->dump = std::move(dump);
            withDump.emplace_back(kindName(kind));
        }
        m_gate = std::make_unique<AlignmentGate>(withDump);
        return true;
    }

    const std::vector<std::unique_ptr<Channel>>& channels() const { return m_channels; }

    void followChannel(Channel& channel) {
        SimulcastReader reader;
        if (!openWithRetries(reader, channel)) {
            return;
        }
        std::vector<std::uint8_t> buffer;
        fitBuffer(reader, buffer);
        bool first = true;
        while (!m_stop.load()) {
            bool discontinuity = false;
            bool timedOut = false;
            if (reader.read(buffer.data(), static_cast<std::int32_t>(buffer.size()), m_options.timeoutMs,
                            discontinuity, timedOut)) {
                tellOpened(channel);
                const bool gap = discontinuity && !first;
                if (gap) {
                    refreshFormat(channel);  // the run may have restarted, with another format
                }
                if (!deliver(channel, reader.lastSequence(), discontinuity, gap, buffer, first)) {
                    return;
                }
                first = false;
                // A new run with larger chunks: this record came cut to the old size, its header whole.
                fitBuffer(reader, buffer);
            } else if (timedOut) {
                // The reader lets a replaced run go by itself; tell when the new one can't be had.
                if (!reader.isOpen() && !reader.openFailure().empty()) {
                    tellOpenFailure(channel, reader.openFailure());
                }
            } else if (reader.isOpen() && buffer.size() != static_cast<std::size_t>(reader.maxChunkBytes())) {
                fitBuffer(reader, buffer);  // a new run with smaller chunks: read them at their size
            } else {
                reader.close();  // the channel failed under the reader: start over
                if (!openWithRetries(reader, channel)) {
                    return;
                }
                fitBuffer(reader, buffer);
            }
        }
    }

    void printStats(double seconds) {
        std::lock_guard lock(m_outputMutex);
        for (const auto& channel : m_channels) {
            m_text << channel->stats.takeLine(seconds) << '\n';
        }
        m_text.flush();
    }

    // Completes the files; the exit code of the follow.
    int finishDumps() {
        for (const auto& channel : m_channels) {
            std::string error;
            if (channel->dump && !channel->dump->finish(error) && !channel->dump->writesStandardOutput()) {
                fail(error);
            }
        }
        return m_failed.load() ? kExitFileFailed : m_ended.load() ? kExitFormatChanged : 0;
    }

  private:
    bool openWithRetries(SimulcastReader& reader, Channel& channel) {
        while (!m_stop.load()) {
            if (reader.open(channel.name.c_str())) {
                tellOpened(channel);
                return true;
            }
            if (reader.openFailure().empty()) {
                tellOpenState(channel, "", "waiting for channel " + channel.name);
            } else {
                tellOpenFailure(channel, reader.openFailure());
            }
            std::this_thread::sleep_for(kOpenRetryPause);
        }
        return false;
    }

    // Tells that `channel` is there but refused ("<object>: <reason>"), once for each reason.
    void tellOpenFailure(Channel& channel, const std::string& failure) {
        const bool refused =
            failure.ends_with(std::strerror(EACCES)) || failure.ends_with(std::strerror(EPERM));
        tellOpenState(channel, failure,
                      "channel " + channel.name + " is there but can't be opened: " + failure +
                          (refused ? " (the run doesn't share its objects with this user: see "
                                     "SDI_TAP_SHM_GROUP and SDI_TAP_SHM_MODE)"
                                   : "") +
                          "; retrying");
    }

    void tellOpenState(Channel& channel, const std::string& state, const std::string& message) {
        if (channel.toldOpenState != state) {
            channel.toldOpenState = state;
            say(message);
        }
    }

    // After a refusal was told, that it is over.
    void tellOpened(Channel& channel) {
        if (channel.toldOpenState && !channel.toldOpenState->empty()) {
            say("channel " + channel.name + " opened");
        }
        channel.toldOpenState.reset();
    }

    // Sizes `buffer` to the chunks of the run the reader follows now.
    static void fitBuffer(const SimulcastReader& reader, std::vector<std::uint8_t>& buffer) {
        if (reader.isOpen()) {
            buffer.resize(static_cast<std::size_t>(std::max(reader.maxChunkBytes(), 0)));
        }
    }

    void refreshFormat(Channel& channel) {
        if (channel.dump) {
            channel.context.format = readFormatBlock(portNameOf(channel));
        }
    }

    std::string portNameOf(const Channel& channel) const {
        return m_options.channel.empty() ? m_options.portName : portOfChannel(channel.name);
    }

    // False when the channel's thread is to end.
    bool deliver(Channel& channel, std::int64_t sequence, bool discontinuity, bool gap,
                 const std::vector<std::uint8_t>& chunk, bool first) {
        const std::int64_t index = m_records.fetch_add(1);
        if (m_options.maxRecords > 0 && index >= m_options.maxRecords) {
            m_stop.store(true);
            return false;
        }
        channel.stats.add(gap, chunk.data(), chunk.size());
        if (m_recordLines) {
            const std::string line =
                summariseRecord(channel.kind, sequence, discontinuity, chunk.data(), chunk.size());
            std::lock_guard lock(m_outputMutex);
            m_text << line << std::endl;
        }
        if (channel.dump && !dump(channel, chunk, gap, first)) {
            return false;
        }
        if (m_options.maxRecords > 0 && index + 1 >= m_options.maxRecords) {
            m_stop.store(true);
        }
        return true;
    }

    bool dump(Channel& channel, const std::vector<std::uint8_t>& chunk, bool gap, bool first) {
        const std::int64_t start = recordStart(channel.kind, chunk);
        if (first) {
            const auto origin = m_gate->join(
                std::string(kindName(channel.kind)), start, m_stop,
                [&](std::int64_t common) { announceStart(channel, common); },
                [&](const std::string& missing) {
                    say("the files start once every channel with a file has sent a record; none yet on: " +
                        missing);
                });
            if (!origin) {
                return false;
            }
            channel.context = m_context;
        }
        if (!channel.dumping && start < channel.context.origin) {
            return true;  // before the first frame every dump has
        }
        if (channel.dumping && gap && start < channel.lastEnd) {
            // A new run counts its times from its own start again: its records go on in the files
            // where the old run's ended, as its pictures and samples do.
            channel.context.origin = start - (channel.lastEnd - channel.context.origin);
        }
        channel.dumping = true;  // from here on everything, also after a restart of the run
        channel.lastEnd = recordEnd(channel.kind, chunk);
        std::string error;
        switch (channel.dump->write(chunk, channel.context, gap, error)) {
            case WriteResult::Written:
                return true;
            case WriteResult::Ended:
                say(error);
                m_ended = true;
                m_stop.store(true);
                return false;
            case WriteResult::Failed:
                break;
        }
        if (channel.dump->writesStandardOutput()) {
            say("standard output closed: stopping");
            m_stop.store(true);
        } else {
            fail(error);
        }
        return false;
    }

    // Runs once, under the gate's lock, before any dump writes.
    void announceStart(const Channel& channel, std::int64_t origin) {
        m_context.origin = origin;
        m_context.format = readFormatBlock(portNameOf(channel));
        std::lock_guard lock(m_outputMutex);
        m_text << "first frame=" << frameNumberAt(origin, m_context.format.formatCode) << " start=" << origin
               << std::endl;
    }

    void say(const std::string& message) {
        std::lock_guard lock(m_outputMutex);
        m_err << "simulcast_follow: " << message << std::endl;
    }

    void fail(const std::string& message) {
        say(message);
        m_failed = true;
        m_stop.store(true);
    }

    const FollowOptions& m_options;
    std::ostream& m_text;
    std::ostream& m_err;
    std::atomic<bool>& m_stop;
    const bool m_recordLines;
    std::mutex m_outputMutex;
    std::atomic<std::int64_t> m_records{0};
    std::atomic<bool> m_failed{false};
    std::atomic<bool> m_ended{false};
    std::vector<std::unique_ptr<Channel>> m_channels;
    std::unique_ptr<AlignmentGate> m_gate;
    DumpContext m_context;  // set by the gate before any dump uses it
};

// Waits for the stop flag, sets it when the time limit is reached, and prints the stats once a
// second.
void waitForStop(const FollowOptions& options, FollowSession& session, std::atomic<bool>& stop) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    const auto deadline = begin + std::chrono::duration<double>(options.seconds);
    auto lastStats = begin;
    while (!stop.load()) {
        const auto now = Clock::now();
        if (options.seconds > 0 && now >= deadline) {
            stop.store(true);
            break;
        }
        if (options.stats && now - lastStats >= std::chrono::seconds(1)) {
            session.printStats(std::chrono::duration<double>(now - lastStats).count());
            lastStats = now;
        }
        std::this_thread::sleep_for(kStopPoll);
    }
}

}  // namespace

bool writesToStandardOutput(const DumpPaths& paths) {
    const bool pairToOutput =
        std::any_of(paths.wavPairs.begin(), paths.wavPairs.end(),
                    [](const WavPairOutput& pair) { return isStandardOutput(pair.path); });
    return pairToOutput || isStandardOutput(paths.y4m) || isStandardOutput(paths.scc) ||
           isStandardOutput(paths.captionSrt) || isStandardOutput(paths.teletextTs) ||
           isStandardOutput(paths.teletextSrt);
}

int followRun(const FollowOptions& options, std::ostream& out, std::ostream& err, std::atomic<bool>& stop) {
    auto session = std::make_unique<FollowSession>(options, out, err, stop);
    if (!session->openDumps()) {
        return 1;
    }
    std::vector<std::thread> threads;
    for (const auto& channel : session->channels()) {
        threads.emplace_back([&session, &channel] { session->followChannel(*channel); });
    }
    waitForStop(options, *session, stop);
    for (std::thread& thread : threads) {
        thread.join();
    }
    return session->finishDumps();
}

}  // namespace ovtx::tools::simulcast_follow::v1
