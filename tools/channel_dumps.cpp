#include "tools/channel_dumps.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iomanip>
#include <optional>
#include <span>
#include <sstream>
#include <utility>

#include "encoding/subtitle_text/subtitle_decoder.h"
#include "tools/caption_files.h"
#include "tools/format_geometry.h"
#include "tools/media_files.h"
#include "tools/teletext_ts.h"

namespace ovtx::tools::simulcast_follow::v1 {

namespace {

namespace records = simulcast::capture_records::v1;
using encoding::subtitle_text::v1::SubtitleDecoder;

template <typename Field>
Field field(const std::vector<std::uint8_t>& chunk, std::size_t offset) {
    Field value{};
    if (offset + sizeof value <= chunk.size()) {
        std::memcpy(&value, chunk.data() + offset, sizeof value);
    }
    return value;
}

// How a message names a file.
std::string shownName(const std::string& path) {
    return isStandardOutput(path) ? "standard output" : path;
}

// "720x576i 25 fps 10-bit", as a message names a picture.
std::string describe(const FormatGeometry& geometry, int bitDepth) {
    std::ostringstream text;
    text << geometry.width << 'x' << geometry.height << (geometry.interlaced ? 'i' : 'p') << ' '
         << std::setprecision(4)
         << static_cast<double>(geometry.rateNumerator) / static_cast<double>(geometry.rateDenominator)
         << " fps " << bitDepth << "-bit";
    return text.str();
}

class VideoDump : public ChannelDump {
  public:
    VideoDump(std::string path, DumpReport report) : m_path(std::move(path)), m_report(std::move(report)) {}

    bool open(std::string& error) override {
        if (!m_file.open(m_path)) {
            error = "cannot create " + m_path;
            return false;
        }
        return true;
    }

    WriteResult write(const std::vector<std::uint8_t>& chunk, const DumpContext& context, bool /*gap*/,
                      std::string& error) override {
        const auto header = field<records::VideoRecordHeader>(chunk, 0);
        if (header.magic != records::kVideoMagic || header.standardMismatch != 0) {
            return WriteResult::Written;  // a frame without picture
        }
        if (!m_file.started()) {
            if (!start(context.format, header, error)) {
                return WriteResult::Failed;
            }
        } else if (changedGeometry(context.format, error)) {
            return WriteResult::Ended;
        }
        if (header.aspectNumerator != m_aspect[0] || header.aspectDenominator != m_aspect[1]) {
            m_aspect = {header.aspectNumerator, header.aspectDenominator};
            m_report("the aspect ratio changed to " + std::to_string(m_aspect[0]) + ":" +
                     std::to_string(m_aspect[1]) + " at start " + std::to_string(header.start) + "; " +
                     m_path + " keeps the one it began with");
        }
        if (chunk.size() < m_file.pictureBytes() + records::kVideoPictureOffset) {
            error = "a video record of " + std::to_string(chunk.size()) + " bytes is too small for the " +
                    describe(m_geometry, m_bitDepth) + " picture of the format block";
            return WriteResult::Failed;
        }
        if (!m_file.writeFrame(chunk.data() + records::kVideoPictureOffset)) {
            error = "cannot write " + m_path;
            return WriteResult::Failed;
        }
        return WriteResult::Written;
    }

    bool finish(std::string& error) override {
        if (!m_file.close()) {
            error = "cannot write " + m_path;
            return false;
        }
        return true;
    }

    bool writesStandardOutput() const override { return isStandardOutput(m_path); }

  private:
    bool start(const records::FormatBlock& block, const records::VideoRecordHeader& header,
               std::string& error) {
        const auto geometry = formatGeometry(block.formatCode);
        if (!geometry) {
            error = "unknown video format code " + std::to_string(block.formatCode) + " in the format block";
            return false;
        }
        if (block.bitDepth != 8 && block.bitDepth != 10) {
            error = "bit depth " + std::to_string(block.bitDepth) +
                    " in the format block: cannot tell the picture's geometry";
            return false;
        }
        m_geometry = *geometry;
        m_bitDepth = block.bitDepth;
        m_aspect = {header.aspectNumerator, header.aspectDenominator};
        if (!m_file.start(*geometry, block.bitDepth, m_aspect[0], m_aspect[1])) {
            error = "cannot write " + m_path;
            return false;
        }
        return true;
    }

    // True, with the message, when the run now sends pictures other than those the file holds.
    bool changedGeometry(const records::FormatBlock& block, std::string& message) const {
        const auto geometry = formatGeometry(block.formatCode);
        if (geometry && *geometry == m_geometry && block.bitDepth == m_bitDepth) {
            return false;
        }
        message = "the run now sends " +
                  (geometry ? describe(*geometry, block.bitDepth)
                            : "video format code " + std::to_string(block.formatCode)) +
                  "; " + shownName(m_path) + " holds " + describe(m_geometry, m_bitDepth) +
                  ", and a Y4M file can't change its picture mid-file: the follow ends here";
        return true;
    }

    std::string m_path;
    DumpReport m_report;
    Y4mFile m_file;
    FormatGeometry m_geometry{};
    int m_bitDepth = 0;
    std::array<int, 2> m_aspect{0, 0};
};

class AudioDump : public ChannelDump {
  public:
    explicit AudioDump(const DumpPaths& paths) {
        if (!paths.wavPrefix.empty()) {
            for (int p = 1; p <= records::kAudioPairCount; ++p) {
                m_outputs.push_back({p, paths.wavPrefix + std::to_string(p) + ".wav"});
            }
        }
        m_outputs.insert(m_outputs.end(), paths.wavPairs.begin(), paths.wavPairs.end());
        m_files = std::vector<WavFile>(m_outputs.size());
    }

    bool open(std::string& error) override {
        for (std::size_t i = 0; i < m_files.size(); ++i) {
            if (!m_files[i].open(m_outputs[i].path)) {
                error = "cannot create " + m_outputs[i].path;
                return false;
            }
        }
        return true;
    }

    WriteResult write(const std::vector<std::uint8_t>& chunk, const DumpContext& /*context*/, bool /*gap*/,
                      std::string& error) override {
        if (chunk.size() < sizeof(records::AudioRecord) ||
            field<std::uint16_t>(chunk, offsetof(records::AudioRecord, magic)) != records::kAudioMagic) {
            return WriteResult::Written;
        }
        const auto* record = reinterpret_cast<const records::AudioRecord*>(chunk.data());
        if (changedRate(*record, error)) {
            return WriteResult::Ended;  // before any file takes the record, so that all end alike
        }
        for (std::size_t i = 0; i < m_files.size(); ++i) {
            const records::AudioPairBlock& pair = record->pairs[m_outputs[i].pair - 1];
            const std::size_t count = std::min<std::size_t>(pair.sampleCount, records::kMaxStereoSamples);
            if ((!m_files[i].started() && !m_files[i].start(sampleRateOf(pair.sampling))) ||
                !m_files[i].append(pair.samples, count)) {
                m_failed = m_outputs[i].path;
                error = m_files[i].full() ? m_failed + " reached the 4 GB that a WAV file can hold"
                                          : "cannot write " + m_failed;
                return WriteResult::Failed;
            }
        }
        return WriteResult::Written;
    }

    bool finish(std::string& error) override {
        bool ok = true;
        for (std::size_t i = 0; i < m_files.size(); ++i) {
            if (!m_files[i].close() && ok) {
                error = "cannot write " + m_outputs[i].path;
                ok = false;
            }
        }
        return ok;
    }

    bool writesStandardOutput() const override { return isStandardOutput(m_failed); }

  private:
    // True, with the message, when a pair present in `record` comes at a rate its file doesn't hold.
    bool changedRate(const records::AudioRecord& record, std::string& message) const {
        for (std::size_t i = 0; i < m_files.size(); ++i) {
            const records::AudioPairBlock& pair = record.pairs[m_outputs[i].pair - 1];
            const std::uint32_t rate = sampleRateOf(pair.sampling);
            if (m_files[i].started() && pair.present != 0 && rate != m_files[i].sampleRate()) {
                message = "the run now sends pair " + std::to_string(m_outputs[i].pair) + " at " +
                          std::to_string(rate) + " Hz; " + shownName(m_outputs[i].path) + " holds " +
                          std::to_string(m_files[i].sampleRate()) +
                          " Hz, and a WAV file can't change its rate mid-file: the follow ends here";
                return true;
            }
        }
        return false;
    }

    std::vector<WavPairOutput> m_outputs;
    std::vector<WavFile> m_files;
    std::string m_failed;
};

// A subtitle channel's two files: the channel as sent in a standard form (`StreamFile`: SCC or
// transport stream) and, decoded, an SRT file. Either may be absent.
template <typename StreamFile>
class SubtitleDump : public ChannelDump {
  public:
    SubtitleDump(std::string streamPath, std::string srtPath)
        : m_streamPath(std::move(streamPath)), m_srtPath(std::move(srtPath)) {}

    bool open(std::string& error) override {
        if (!m_streamPath.empty() && !m_stream.open(m_streamPath)) {
            error = "cannot create " + m_streamPath;
            return false;
        }
        if (!m_srtPath.empty()) {
            if (!m_srt.open(m_srtPath)) {
                error = "cannot create " + m_srtPath;
                return false;
            }
            m_decoder.emplace();
        }
        return true;
    }

    bool finish(std::string& error) override {
        const bool stream = m_streamPath.empty() || m_stream.close();
        const bool srt = m_srtPath.empty() || m_srt.close(m_end);
        if (!stream || !srt) {
            error = "cannot write " + (stream ? m_srtPath : m_streamPath);
        }
        return stream && srt;
    }

    bool writesStandardOutput() const override { return isStandardOutput(m_failed); }

  protected:
    WriteResult failedOn(const std::string& path, std::string& error) {
        error = "cannot write " + path;
        m_failed = path;
        return WriteResult::Failed;
    }

    std::string m_streamPath;
    std::string m_srtPath;
    StreamFile m_stream;
    SubRipFile m_srt;
    std::optional<SubtitleDecoder> m_decoder;
    std::int64_t m_end = 0;  // of the last record, for the last cue

  private:
    std::string m_failed;
};

// Field 1 of CEA-608 goes to the SCC file as sent and, decoded, to the SRT file.
class CaptionDump : public SubtitleDump<SccFile> {
  public:
    explicit CaptionDump(const DumpPaths& paths) : SubtitleDump(paths.scc, paths.captionSrt) {}

    WriteResult write(const std::vector<std::uint8_t>& chunk, const DumpContext& context, bool gap,
                      std::string& error) override {
        const std::size_t head = offsetof(records::CaptionRecord, entries);
        if (chunk.size() < head) {
            return WriteResult::Written;
        }
        const std::int64_t time =
            field<std::int64_t>(chunk, offsetof(records::CaptionRecord, start)) - context.origin;
        m_end = field<std::int64_t>(chunk, offsetof(records::CaptionRecord, end)) - context.origin;
        const std::size_t count = std::min<std::size_t>(
            {chunk[offsetof(records::CaptionRecord, count)], records::kMaxCaptionEntries,
             (chunk.size() - head) / sizeof(records::CaptionEntry)});
        if (gap && m_decoder) {
            m_decoder->markGap();
        }
        bool fed = false;
        bool ok = true;
        for (std::size_t i = 0; i < count; ++i) {
            const auto entry = field<records::CaptionEntry>(chunk, head + i * sizeof(records::CaptionEntry));
            if (entry.ccValid != 1 || entry.ccType != 0) {
                continue;
            }
            const Cea608Pair pair{static_cast<std::uint8_t>(entry.ccData1),
                                  static_cast<std::uint8_t>(entry.ccData2)};
            ok = ok && (m_streamPath.empty() || m_stream.addPair(time, pair));
            feed(pair);
            fed = true;
        }
        if (!fed) {
            feed(encoding::subtitling::v1::Cea608Pair{});  // the decoder counts frames by its feeds
        }
        if (!ok) {
            return failedOn(m_streamPath, error);
        }
        if (m_decoder && !m_srt.show(time, m_decoder->captionText())) {
            return failedOn(m_srtPath, error);
        }
        return WriteResult::Written;
    }

  private:
    void feed(Cea608Pair pair) {
        if (m_decoder) {
            m_decoder->feedCaptionPair(pair.first, pair.second);
        }
    }
};

// The teletext channel goes to a transport stream as sent and, one page decoded, to the SRT file.
class TeletextDump : public SubtitleDump<TeletextTsFile> {
  public:
    explicit TeletextDump(const DumpPaths& paths)
        : SubtitleDump(paths.teletextTs, paths.teletextSrt), m_page(paths.teletextPage) {}

    WriteResult write(const std::vector<std::uint8_t>& chunk, const DumpContext& context, bool gap,
                      std::string& error) override {
        if (chunk.size() < sizeof(records::TeletextRecord) ||
            field<std::uint16_t>(chunk, offsetof(records::TeletextRecord, magic)) !=
                records::kTeletextMagic) {
            return WriteResult::Written;
        }
        const auto* record = reinterpret_cast<const records::TeletextRecord*>(chunk.data());
        const std::int64_t time = record->start - context.origin;
        m_end = record->end - context.origin;
        const std::span<const std::uint8_t> descriptor(
            record->descriptor,
            std::min<std::size_t>(record->descriptorLength, records::kMaxTeletextDescriptorBytes));
        const std::span<const std::uint8_t> data(
            record->data, std::min<std::size_t>(record->dataLength, records::kMaxTeletextDataBytes));
        if (!m_streamPath.empty() && !m_stream.write(descriptor, data, time)) {
            return failedOn(m_streamPath, error);
        }
        if (m_decoder) {
            if (gap) {
                m_decoder->markGap();
            }
            m_decoder->feedTeletextData(data);
            if (!m_srt.show(time, m_decoder->teletextText(m_page).value_or(""))) {
                return failedOn(m_srtPath, error);
            }
        }
        return WriteResult::Written;
    }

  private:
    int m_page;
};

}  // namespace

std::unique_ptr<ChannelDump> makeChannelDump(RecordKind kind, const DumpPaths& paths, DumpReport report) {
    switch (kind) {
        case RecordKind::Video:
            return paths.y4m.empty() ? nullptr : std::make_unique<VideoDump>(paths.y4m, std::move(report));
        case RecordKind::Audio:
            return paths.wavPrefix.empty() && paths.wavPairs.empty() ? nullptr
                                                                     : std::make_unique<AudioDump>(paths);
        case RecordKind::Captions:
            return paths.scc.empty() && paths.captionSrt.empty() ? nullptr
                                                                 : std::make_unique<CaptionDump>(paths);
        case RecordKind::Teletext:
            return paths.teletextTs.empty() && paths.teletextSrt.empty()
                       ? nullptr
                       : std::make_unique<TeletextDump>(paths);
        case RecordKind::Raw:
            break;
    }
    return nullptr;
}

std::int64_t recordEnd(RecordKind kind, const std::vector<std::uint8_t>& chunk) {
    switch (kind) {
        case RecordKind::Video:
            return field<std::int64_t>(chunk, offsetof(records::VideoRecordHeader, end));
        case RecordKind::Audio:
            return field<std::int64_t>(chunk, offsetof(records::AudioRecord, end));
        case RecordKind::Captions:
            return field<std::int64_t>(chunk, offsetof(records::CaptionRecord, end));
        case RecordKind::Teletext:
            return field<std::int64_t>(chunk, offsetof(records::TeletextRecord, end));
        case RecordKind::Raw:
            break;
    }
    return 0;
}

std::int64_t recordStart(RecordKind kind, const std::vector<std::uint8_t>& chunk) {
    switch (kind) {
        case RecordKind::Video:
            return field<std::int64_t>(chunk, offsetof(records::VideoRecordHeader, start));
        case RecordKind::Audio:
            return field<std::int64_t>(chunk, offsetof(records::AudioRecord, start));
        case RecordKind::Captions:
            return field<std::int64_t>(chunk, offsetof(records::CaptionRecord, start));
        case RecordKind::Teletext:
            return field<std::int64_t>(chunk, offsetof(records::TeletextRecord, start));
        case RecordKind::Raw:
            break;
    }
    return 0;
}

}  // namespace ovtx::tools::simulcast_follow::v1
