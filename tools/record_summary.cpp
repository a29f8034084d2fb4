#include "tools/record_summary.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "cpp_utils/cpp_tools/string_format.h"
#include "simulcast/capture_records.h"

namespace ovtx::tools::simulcast_follow::v1 {

namespace {

using cpp_utils::cpp_tools::v1::formatText;

using namespace simulcast::capture_records::v1;

std::string times(const std::uint8_t* chunk, std::size_t startOffset, std::size_t endOffset) {
    return formatText(" start=%lld end=%lld",
                      static_cast<long long>(recordField<std::int64_t>(chunk, startOffset)),
                      static_cast<long long>(recordField<std::int64_t>(chunk, endOffset)));
}

std::string videoSummary(const std::uint8_t* chunk) {
    const auto header = recordField<VideoRecordHeader>(chunk, 0);
    return times(chunk, offsetof(VideoRecordHeader, start), offsetof(VideoRecordHeader, end)) +
           formatText(" magic=0x%04X mismatch=%u rdisc=%u aspect=%u:%u", header.magic,
                      header.standardMismatch, header.discontinuity, header.aspectNumerator,
                      header.aspectDenominator);
}

std::string audioSummary(const std::uint8_t* chunk) {
    std::string line = times(chunk, offsetof(AudioRecord, start), offsetof(AudioRecord, end)) +
                       formatText(" magic=0x%04X rdisc=%u pairs=",
                                  recordField<std::uint16_t>(chunk, offsetof(AudioRecord, magic)),
                                  chunk[offsetof(AudioRecord, discontinuity)]);
    for (std::size_t p = 0; p < kAudioPairCount; ++p) {
        const std::uint8_t* pair = chunk + offsetof(AudioRecord, pairs) + sizeof(AudioPairBlock) * p;
        line += formatText("%s%u/%u/%u", p == 0 ? "" : ",", pair[offsetof(AudioPairBlock, present)],
                           recordField<std::uint16_t>(pair, offsetof(AudioPairBlock, sampleCount)),
                           recordField<std::uint32_t>(pair, offsetof(AudioPairBlock, sampling)));
    }
    return line;
}

std::string captionSummary(const std::uint8_t* chunk) {
    return times(chunk, offsetof(CaptionRecord, start), offsetof(CaptionRecord, end)) +
           formatText(" count=%u", chunk[offsetof(CaptionRecord, count)]);
}

std::string teletextSummary(const std::uint8_t* chunk) {
    return times(chunk, offsetof(TeletextRecord, start), offsetof(TeletextRecord, end)) +
           formatText(" magic=0x%04X desc=%u data=%u",
                      recordField<std::uint16_t>(chunk, offsetof(TeletextRecord, magic)),
                      recordField<std::uint32_t>(chunk, offsetof(TeletextRecord, descriptorLength)),
                      recordField<std::uint32_t>(chunk, offsetof(TeletextRecord, dataLength)));
}

// Bytes a chunk must hold for the fields its summary reads.
std::size_t summaryBytes(RecordKind kind) {
    switch (kind) {
        case RecordKind::Video:
            return sizeof(VideoRecordHeader);
        case RecordKind::Audio:
            return offsetof(AudioRecord, pairs) + sizeof(AudioPairBlock) * kAudioPairCount;
        case RecordKind::Captions:
            return offsetof(CaptionRecord, entries);
        case RecordKind::Teletext:
            return offsetof(TeletextRecord, descriptor);
        case RecordKind::Raw:
            break;
    }
    return 0;
}

constexpr std::array<std::string_view, 5> kKindNames{"video", "audio", "captions", "teletext", "raw"};

}  // namespace

RecordKind kindOfChannel(std::string_view channelName) {
    if (channelName.starts_with(kVideoPrefix)) {
        return RecordKind::Video;
    }
    if (channelName.starts_with(kAudioPrefix)) {
        return RecordKind::Audio;
    }
    if (channelName.starts_with(kCaptionPrefix)) {
        return RecordKind::Captions;
    }
    if (channelName.starts_with(kTeletextPrefix)) {
        return RecordKind::Teletext;
    }
    return RecordKind::Raw;
}

std::string_view kindName(RecordKind kind) {
    return kKindNames[static_cast<std::size_t>(kind)];
}

bool parseKind(std::string_view text, RecordKind& kind) {
    for (std::size_t i = 0; i < kKindNames.size(); ++i) {
        if (kKindNames[i] == text) {
            kind = static_cast<RecordKind>(i);
            return true;
        }
    }
    kind = RecordKind::Raw;
    return false;
}

std::string summariseRecord(RecordKind kind, std::int64_t sequence, bool discontinuity,
                            const std::uint8_t* chunk, std::size_t bytes) {
    std::string line =
        std::string(kindName(kind)) +
        formatText(" seq=%lld disc=%d", static_cast<long long>(sequence), discontinuity ? 1 : 0);
    if (bytes < summaryBytes(kind)) {
        return line + formatText(" short=%zu", bytes);
    }
    switch (kind) {
        case RecordKind::Video:
            return line + videoSummary(chunk);
        case RecordKind::Audio:
            return line + audioSummary(chunk);
        case RecordKind::Captions:
            return line + captionSummary(chunk);
        case RecordKind::Teletext:
            return line + teletextSummary(chunk);
        case RecordKind::Raw:
            break;
    }
    return line + formatText(" bytes=%zu", bytes);
}

}  // namespace ovtx::tools::simulcast_follow::v1
