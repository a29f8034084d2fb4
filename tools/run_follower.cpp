#include "tools/run_follower.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "simulcast/capture_records.h"
#include "simulcast/simulcast_reader.h"
#include "system/ipc/named_objects.h"
#include "tools/media_files.h"

namespace ovtx::tools::simulcast_follow::v1 {

namespace {

namespace records = simulcast::capture_records::v1;
namespace ipc = system::ipc::v2;
using simulcast::simulcast_channel::v1::SimulcastReader;

constexpr auto kOpenRetryPause = std::chrono::milliseconds(50);

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

// Everything the channel threads share: output, counters, the media files.
class FollowSession {
  public:
    FollowSession(const FollowOptions& options, std::ostream& out, std::ostream& err, std::atomic<bool>& stop)
        : m_options(options), m_out(out), m_err(err), m_stop(stop) {}

    void followChannel(const std::string& name, RecordKind kind) {
        SimulcastReader reader;
        if (!openWithRetries(reader, name)) {
            return;
        }
        std::vector<std::uint8_t> buffer(static_cast<std::size_t>(reader.maxChunkBytes()));
        while (!m_stop.load()) {
            bool discontinuity = false;
            bool timedOut = false;
            if (reader.read(buffer.data(), static_cast<std::int32_t>(buffer.size()), m_options.timeoutMs,
                            discontinuity, timedOut)) {
                deliver(kind, name, reader.lastSequence(), discontinuity, buffer);
            } else if (!timedOut) {
                // The channel changed under the reader (a writer restarted with other sizes): start over.
                reader.close();
                if (!openWithRetries(reader, name)) {
                    return;
                }
                buffer.resize(static_cast<std::size_t>(reader.maxChunkBytes()));
            }
        }
    }

    bool failed() const { return m_failed.load(); }

  private:
    bool openWithRetries(SimulcastReader& reader, const std::string& name) {
        bool told = false;
        while (!m_stop.load()) {
            if (reader.open(name.c_str())) {
                return true;
            }
            if (!told) {
                std::lock_guard lock(m_outputMutex);
                m_err << "simulcast_follow: waiting for channel " << name << std::endl;
                told = true;
            }
            std::this_thread::sleep_for(kOpenRetryPause);
        }
        return false;
    }

    void deliver(RecordKind kind, const std::string& name, std::int64_t sequence, bool discontinuity,
                 const std::vector<std::uint8_t>& chunk) {
        const std::int64_t index = m_records.fetch_add(1);
        if (m_options.maxRecords > 0 && index >= m_options.maxRecords) {
            m_stop.store(true);
            return;
        }
        const std::string line = summariseRecord(kind, sequence, discontinuity, chunk.data(), chunk.size());
        {
            std::lock_guard lock(m_outputMutex);
            m_out << line << std::endl;
        }
        if (kind == RecordKind::Video && !m_options.y4mPath.empty()) {
            writeVideo(name, chunk);
        }
        if (kind == RecordKind::Audio && !m_options.wavPrefix.empty()) {
            writeAudio(chunk);
        }
        if (m_options.maxRecords > 0 && index + 1 >= m_options.maxRecords) {
            m_stop.store(true);
        }
    }

    void fail(const std::string& message) {
        std::lock_guard lock(m_outputMutex);
        m_err << "simulcast_follow: " << message << std::endl;
        m_failed = true;
        m_stop.store(true);
    }

    std::string portOf(const std::string& channel) const {
        if (m_options.channel.empty()) {
            return m_options.portName;
        }
        return channel.substr(std::min(channel.size(), records::kVideoPrefix.size()));
    }

    void writeVideo(const std::string& channel, const std::vector<std::uint8_t>& chunk) {
        records::VideoRecordHeader header;
        std::memcpy(&header, chunk.data(), sizeof header);
        if (header.magic != records::kVideoMagic || header.standardMismatch != 0) {
            return;  // a frame without picture
        }
        if (!m_video.isOpen() && !openVideo(channel, chunk.size(), header)) {
            return;
        }
        if (m_video.isOpen() && !m_video.writeFrame(chunk.data() + records::kVideoPictureOffset)) {
            fail("cannot write " + m_options.y4mPath);
        }
    }

    bool openVideo(const std::string& channel, std::size_t chunkBytes,
                   const records::VideoRecordHeader& header) {
        const records::FormatBlock block = readFormatBlock(portOf(channel));
        const auto geometry = formatGeometry(block.formatCode);
        if (!geometry) {
            fail("unknown video format code " + std::to_string(block.formatCode) + " in the format block");
            return false;
        }
        const int depth = block.bitDepth;
        if (depth != 8 && depth != 10) {
            fail("bit depth " + std::to_string(depth) + " in the format block: cannot tell the picture's geometry");
            return false;
        }
        if (!m_video.open(m_options.y4mPath, *geometry, depth, header.aspectNumerator,
                          header.aspectDenominator)) {
            fail("cannot create " + m_options.y4mPath);
            return false;
        }
        if (m_video.pictureBytes() + records::kVideoPictureOffset > chunkBytes) {
            fail("the video chunks are too small for the announced format");
            return false;
        }
        return true;
    }

    void writeAudio(const std::vector<std::uint8_t>& chunk) {
        records::AudioRecord record;
        std::memcpy(&record, chunk.data(), sizeof record);
        if (record.magic != records::kAudioMagic) {
            return;
        }
        for (std::size_t p = 0; p < m_pairs.size(); ++p) {
            const records::AudioPairBlock& pair = record.pairs[p];
            const std::string path = m_options.wavPrefix + std::to_string(p + 1) + ".wav";
            if (!m_pairs[p].isOpen() && !m_pairs[p].open(path, sampleRateOf(pair.sampling))) {
                fail("cannot create " + path);
                return;
            }
            const std::size_t count = std::min<std::size_t>(pair.sampleCount, records::kMaxStereoSamples);
            if (!m_pairs[p].append(pair.samples, count)) {
                fail("cannot write " + path);
                return;
            }
        }
    }

    const FollowOptions& m_options;
    std::ostream& m_out;
    std::ostream& m_err;
    std::atomic<bool>& m_stop;
    std::mutex m_outputMutex;
    std::atomic<std::int64_t> m_records{0};
    std::atomic<bool> m_failed{false};
    Y4mFile m_video;                                        // only the video thread touches it
    std::array<WavFile, records::kAudioPairCount> m_pairs;  // only the audio thread touches them
};

struct ChannelToFollow {
    std::string name;
    RecordKind kind;
};

std::vector<ChannelToFollow> channelsOf(const FollowOptions& options) {
    if (!options.channel.empty()) {
        return {{options.channel, options.kind.value_or(kindOfChannel(options.channel))}};
    }
    return {{records::channelName(records::kVideoPrefix, options.portName), RecordKind::Video},
            {records::channelName(records::kAudioPrefix, options.portName), RecordKind::Audio},
            {records::channelName(records::kCaptionPrefix, options.portName), RecordKind::Captions},
            {records::channelName(records::kTeletextPrefix, options.portName), RecordKind::Teletext}};
}

void waitForStop(double seconds, std::atomic<bool>& stop) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!stop.load()) {
        if (seconds > 0 && std::chrono::steady_clock::now() >= deadline) {
            stop.store(true);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

}  // namespace

int followRun(const FollowOptions& options, std::ostream& out, std::ostream& err, std::atomic<bool>& stop) {
    auto session = std::make_unique<FollowSession>(options, out, err, stop);
    std::vector<std::thread> threads;
    for (const ChannelToFollow& channel : channelsOf(options)) {
        threads.emplace_back([&session, channel] { session->followChannel(channel.name, channel.kind); });
    }
    waitForStop(options.seconds, stop);
    for (std::thread& thread : threads) {
        thread.join();
    }
    return session->failed() ? 1 : 0;
}

}  // namespace ovtx::tools::simulcast_follow::v1
