#include "tools/channel_dumps.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>

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

    bool write(const std::vector<std::uint8_t>& chunk, const DumpContext& context, bool /*gap*/,
               std::string& error) override {
        const auto header = field<records::VideoRecordHeader>(chunk, 0);
        if (header.magic != records::kVideoMagic || header.standardMismatch != 0) {
            return true;  // a frame without picture
        }
        if (!m_file.started() && !start(chunk.size(), context.format, header, error)) {
            return false;
        }
        if (header.aspectNumerator != m_aspect[0] || header.aspectDenominator != m_aspect[1]) {
            m_aspect = {header.aspectNumerator, header.aspectDenominator};
            m_report("the aspect ratio changed to " + std::to_string(m_aspect[0]) + ":" +
                     std::to_string(m_aspect[1]) + " at start " + std::to_string(header.start) + "; " +
                     m_path + " keeps the one it began with");
        }
        if (!m_file.writeFrame(chunk.data() + records::kVideoPictureOffset)) {
            error = "cannot write " + m_path;
            return false;
        }
        return true;
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
    bool start(std::size_t chunkBytes, const records::FormatBlock& block,
               const records::VideoRecordHeader& header, std::string& error) {
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
        m_aspect = {header.aspectNumerator, header.aspectDenominator};
        if (!m_file.start(*geometry, block.bitDepth, m_aspect[0], m_aspect[1])) {
            error = "cannot write " + m_path;
            return false;
        }
        if (m_file.pictureBytes() + records::kVideoPictureOffset > chunkBytes) {
            error = "the video chunks are too small for the announced format";
            return false;
        }
        return true;
    }

    std::string m_path;
    DumpReport m_report;
    Y4mFile m_file;
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

    bool write(const std::vector<std::uint8_t>& chunk, const DumpContext& /*context*/, bool /*gap*/,
               std::string& error) override {
        if (chunk.size() < sizeof(records::AudioRecord) ||
            field<std::uint16_t>(chunk, offsetof(records::AudioRecord, magic)) != records::kAudioMagic) {
            return true;
        }
        const auto* record = reinterpret_cast<const records::AudioRecord*>(chunk.data());
        for (std::size_t i = 0; i < m_files.size(); ++i) {
            const records::AudioPairBlock& pair = record->pairs[m_outputs[i].pair - 1];
            const std::size_t count = std::min<std::size_t>(pair.sampleCount, records::kMaxStereoSamples);
            if ((!m_files[i].started() && !m_files[i].start(sampleRateOf(pair.sampling))) ||
                !m_files[i].append(pair.samples, count)) {
                m_failed = m_outputs[i].path;
                error = m_files[i].full() ? m_failed + " reached the 4 GB that a WAV file can hold"
                                          : "cannot write " + m_failed;
                return false;
            }
        }
        return true;
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
    std::vector<WavPairOutput> m_outputs;
    std::vector<WavFile> m_files;
    std::string m_failed;
};

// Field 1 of CEA-608 goes to the SCC file as sent and, decoded, to the SRT file.
class CaptionDump : public ChannelDump {
  public:
    explicit CaptionDump(const DumpPaths& paths) : m_sccPath(paths.scc), m_srtPath(paths.captionSrt) {}

    bool open(std::string& error) override {
        if (!m_sccPath.empty() && !m_scc.open(m_sccPath)) {
            error = "cannot create " + m_sccPath;
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

    bool write(const std::vector<std::uint8_t>& chunk, const DumpContext& context, bool gap,
               std::string& error) override {
        const std::size_t head = offsetof(records::CaptionRecord, entries);
        if (chunk.size() < head) {
            return true;
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
            ok = ok && (m_sccPath.empty() || m_scc.addPair(time, pair));
            feed(pair);
            fed = true;
        }
        if (!fed) {
            feed(encoding::subtitling::v1::Cea608Pair{});  // the decoder counts frames by its feeds
        }
        if (!ok) {
            error = "cannot write " + m_sccPath;
            m_failed = m_sccPath;
            return false;
        }
        if (m_decoder && !m_srt.show(time, m_decoder->captionText())) {
            error = "cannot write " + m_srtPath;
            m_failed = m_srtPath;
            return false;
        }
        return true;
    }

    bool finish(std::string& error) override {
        const bool scc = m_sccPath.empty() || m_scc.close();
        const bool srt = m_srtPath.empty() || m_srt.close(m_end);
        if (!scc || !srt) {
            error = "cannot write " + (scc ? m_srtPath : m_sccPath);
        }
        return scc && srt;
    }

    bool writesStandardOutput() const override { return isStandardOutput(m_failed); }

  private:
    void feed(Cea608Pair pair) {
        if (m_decoder) {
            m_decoder->feedCaptionPair(pair.first, pair.second);
        }
    }

    std::string m_sccPath;
    std::string m_srtPath;
    SccFile m_scc;
    SubRipFile m_srt;
    std::optional<SubtitleDecoder> m_decoder;
    std::int64_t m_end = 0;
    std::string m_failed;
};

class TeletextDump : public ChannelDump {
  public:
    explicit TeletextDump(const DumpPaths& paths)
        : m_tsPath(paths.teletextTs), m_srtPath(paths.teletextSrt), m_page(paths.teletextPage) {}

    bool open(std::string& error) override {
        if (!m_tsPath.empty() && !m_ts.open(m_tsPath)) {
            error = "cannot create " + m_tsPath;
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

    bool write(const std::vector<std::uint8_t>& chunk, const DumpContext& context, bool gap,
               std::string& error) override {
        if (chunk.size() < sizeof(records::TeletextRecord) ||
            field<std::uint16_t>(chunk, offsetof(records::TeletextRecord, magic)) !=
                records::kTeletextMagic) {
            return true;
        }
        const auto* record = reinterpret_cast<const records::TeletextRecord*>(chunk.data());
        const std::int64_t time = record->start - context.origin;
        m_end = record->end - context.origin;
        const std::span<const std::uint8_t> descriptor(
            record->descriptor,
            std::min<std::size_t>(record->descriptorLength, records::kMaxTeletextDescriptorBytes));
        const std::span<const std::uint8_t> data(
            record->data, std::min<std::size_t>(record->dataLength, records::kMaxTeletextDataBytes));
        if (!m_tsPath.empty() && !m_ts.write(descriptor, data, time)) {
            error = "cannot write " + m_tsPath;
            m_failed = m_tsPath;
            return false;
        }
        if (m_decoder) {
            if (gap) {
                m_decoder->markGap();
            }
            m_decoder->feedTeletextData(data);
            if (!m_srt.show(time, m_decoder->teletextText(m_page).value_or(""))) {
                error = "cannot write " + m_srtPath;
                m_failed = m_srtPath;
                return false;
            }
        }
        return true;
    }

    bool finish(std::string& error) override {
        const bool ts = m_tsPath.empty() || m_ts.close();
        const bool srt = m_srtPath.empty() || m_srt.close(m_end);
        if (!ts || !srt) {
            error = "cannot write " + (ts ? m_srtPath : m_tsPath);
        }
        return ts && srt;
    }

    bool writesStandardOutput() const override { return isStandardOutput(m_failed); }

  private:
    std::string m_tsPath;
    std::string m_srtPath;
    int m_page;
    TeletextTsFile m_ts;
    SubRipFile m_srt;
    std::optional<SubtitleDecoder> m_decoder;
    std::int64_t m_end = 0;
    std::string m_failed;
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
