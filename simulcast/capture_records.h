// What a run publishes: the names of its objects, the sizes its channels open with, the records
// that ride in the chunks, and the times those records carry.
//
// Every public name of a run is a prefix followed directly by the run's `portName` (the decimal
// SDI port, or "4K"). The structures below lie in the chunks exactly as declared (little-endian,
// offsets checked at compile time); bytes they mark reserved are never written by a producer and
// must not be read by a consumer.
//
//   const std::string video = channelName(kVideoPrefix, "2");  // "..._Sdi_Writer_Video_2"
//   writer.open(kCaptureVideoChunks, captureVideoChunkBytes(1920, 1080, true), video.c_str());
//   auto* header = static_cast<VideoRecordHeader*>(writer.beginChunk());
//   header->magic = kVideoMagic;
//   header->start = frameStartTime(n, info.rateNumerator, info.rateDenominator);
//
// Everything here lives in `ovtx::simulcast::capture_records::v1`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ovtx::simulcast::capture_records::v1 {

// ---- Names -------------------------------------------------------------------------------------

// The fixed text that starts every public name of a run.
inline constexpr std::string_view kNameFamily = "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_";

// Named manual-reset event, initially not signalled; any local process may set it to stop the run.
inline constexpr std::string_view kStopEventPrefix = "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Stop_Event_";
// Simulcast channels of VideoRecordHeader plus picture, AudioRecord, CaptionRecord, TeletextRecord.
inline constexpr std::string_view kVideoPrefix = "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Writer_Video_";
inline constexpr std::string_view kAudioPrefix = "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Writer_Audio_";
inline constexpr std::string_view kCaptionPrefix =
    "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Writer_CloseCaption_";
inline constexpr std::string_view kTeletextPrefix =
    "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Writer_Teletext_";
// Shared blocks (GenericSharedMemory bases: the objects are `<base>_mapping` and `<base>_mutex`).
inline constexpr std::string_view kClockPrefix = "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Clock_";
inline constexpr std::string_view kVideoFormatPrefix =
    "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Video_Format_";

// `prefix` followed directly by `portName`: channelName(kVideoPrefix, "2") ends in "_Video_2".
std::string channelName(std::string_view prefix, std::string_view portName);

// ---- Opening sizes -----------------------------------------------------------------------------

// Chunks and bytes per chunk that a channel opens with.
struct ChannelSize {
    std::int32_t numChunks;
    std::int32_t chunkBytes;
};

inline constexpr ChannelSize kCaptureAudioSize{128, 73856};
inline constexpr ChannelSize kPatternAudioSize{64, 73856};
inline constexpr ChannelSize kCaptureTeletextSize{64, 1608};
inline constexpr ChannelSize kPatternTeletextSize{32, 1635};
inline constexpr ChannelSize kCaptureCaptionSize{64, 1024};
inline constexpr ChannelSize kPatternCaptionSize{32, 1024};
inline constexpr std::int32_t kCaptureVideoChunks = 64;
inline constexpr std::int32_t kPatternVideoChunks = 32;
// Bytes a video chunk holds beyond the picture.
inline constexpr std::int32_t kCaptureVideoExtraBytes = 32;
inline constexpr std::int32_t kPatternVideoExtraBytes = 48;
// Block sizes asked for at open. A pattern run declares its format block with 4 bytes and still
// writes both of its fields: blocks are made in whole pages, so a reader maps the full 8.
inline constexpr std::uint32_t kClockBlockBytes = 8;
inline constexpr std::uint32_t kCaptureFormatBlockBytes = 8;
inline constexpr std::uint32_t kPatternFormatBlockBytes = 4;

// Capture mode: width × 12 × height × d / 8, d = 2 with 10-bit samples, else 1.
constexpr std::int64_t capturePictureSize(std::int64_t width, std::int64_t height, bool use10Bit) {
    return width * 12 * height * (use10Bit ? 2 : 1) / 8;
}
// Pattern mode: width × 3 × height / 2, doubled for a bit depth above 8 (the same number).
constexpr std::int64_t patternPictureSize(std::int64_t width, std::int64_t height, int bitDepth) {
    return width * 3 * height / 2 * (bitDepth > 8 ? 2 : 1);
}
constexpr std::int32_t captureVideoChunkBytes(std::int64_t width, std::int64_t height, bool use10Bit) {
    return static_cast<std::int32_t>(capturePictureSize(width, height, use10Bit) + kCaptureVideoExtraBytes);
}
constexpr std::int32_t patternVideoChunkBytes(std::int64_t width, std::int64_t height, int bitDepth) {
    return static_cast<std::int32_t>(patternPictureSize(width, height, bitDepth) + kPatternVideoExtraBytes);
}

// ---- Times -------------------------------------------------------------------------------------

// Times in records are signed 64-bit counts of 100 ns.
inline constexpr std::int64_t kTimeUnitsPerSecond = 10000000;

// Start of frame `n`: n × 10000000 × rateDenominator / rateNumerator, in signed 64-bit with one
// truncating division at the end, never accumulated.
constexpr std::int64_t frameStartTime(std::int64_t n, std::int64_t rateNumerator,
                                      std::int64_t rateDenominator) {
    return n * kTimeUnitsPerSecond * rateDenominator / rateNumerator;
}
// End of frame `n`: the start of frame n + 1.
constexpr std::int64_t frameEndTime(std::int64_t n, std::int64_t rateNumerator,
                                    std::int64_t rateDenominator) {
    return frameStartTime(n + 1, rateNumerator, rateDenominator);
}
// The same for any record with `rateNumerator` and `rateDenominator` fields (SdiFormatInfo).
template <typename FormatInfo>
constexpr std::int64_t frameStartTime(std::int64_t n, const FormatInfo& info) {
    return frameStartTime(n, info.rateNumerator, info.rateDenominator);
}
template <typename FormatInfo>
constexpr std::int64_t frameEndTime(std::int64_t n, const FormatInfo& info) {
    return frameEndTime(n, info.rateNumerator, info.rateDenominator);
}

// ---- Records -----------------------------------------------------------------------------------

inline constexpr std::uint16_t kVideoMagic = 0x4A9E;
inline constexpr std::uint16_t kAudioMagic = 0x5541;
inline constexpr std::uint16_t kTeletextMagic = 0x5454;

// At offset 0 of a video chunk; the picture follows at kVideoPictureOffset: planar 4:2:0, a plane
// of width × height samples, then two of width/2 × height/2 in the order Y, Cr, Cb as the board's
// packed path makes them. A sample is a byte, or a 16-bit little-endian word at 10 bits. Lines
// aren't padded. Width, height and depth come from the FormatBlock.
struct VideoRecordHeader {
    std::uint16_t magic;             // kVideoMagic
    std::uint8_t standardMismatch;   // non-zero: the input disagrees with the standard, no picture
    std::uint8_t discontinuity;      // 1 if a discontinuity lies before this frame
    std::uint8_t aspectNumerator;    // 4 or 16
    std::uint8_t aspectDenominator;  // 3 or 9
    std::uint8_t reserved0[2];
    std::int64_t start;  // start time
    std::int64_t end;    // end time
    std::uint8_t reserved1[8];
};
inline constexpr std::size_t kVideoPictureOffset = 32;
static_assert(sizeof(VideoRecordHeader) == kVideoPictureOffset);
static_assert(offsetof(VideoRecordHeader, magic) == 0);
static_assert(offsetof(VideoRecordHeader, standardMismatch) == 2);
static_assert(offsetof(VideoRecordHeader, discontinuity) == 3);
static_assert(offsetof(VideoRecordHeader, aspectNumerator) == 4);
static_assert(offsetof(VideoRecordHeader, aspectDenominator) == 5);
static_assert(offsetof(VideoRecordHeader, start) == 8);
static_assert(offsetof(VideoRecordHeader, end) == 16);

inline constexpr int kAudioPairCount = 8;
inline constexpr int kMaxStereoSamples = 2304;  // 9216 bytes of 16-bit left and right
inline constexpr std::uint16_t kStereoAudioMode = 2;

// One stereo pair of an AudioRecord. Pairs 0..7 are group 1 channels 1-2, group 1 channels 3-4,
// group 2 channels 1-2, ... group 4 channels 3-4.
struct AudioPairBlock {
    std::uint8_t present;  // 1: samples from the signal or the generator; 0: made-up silence
    std::uint8_t reserved0;
    std::uint16_t mode;         // audio mode; 2 is stereo, and silence says 2
    std::uint16_t sampleCount;  // stereo samples used
    std::uint8_t reserved1[2];
    std::uint32_t sampling;                       // AudioPairSampling code
    std::int16_t samples[kMaxStereoSamples * 2];  // left, right, left, right ...
};
static_assert(sizeof(AudioPairBlock) == 9228);
static_assert(offsetof(AudioPairBlock, present) == 0);
static_assert(offsetof(AudioPairBlock, mode) == 2);
static_assert(offsetof(AudioPairBlock, sampleCount) == 4);
static_assert(offsetof(AudioPairBlock, sampling) == 8);
static_assert(offsetof(AudioPairBlock, samples) == 12);

// At offset 0 of an audio chunk, filling 73848 of its 73856 bytes.
struct AudioRecord {
    std::uint16_t magic;         // kAudioMagic
    std::uint8_t discontinuity;  // the capture engine's flag, 0 in pattern mode
    std::uint8_t reserved0[5];
    std::int64_t start;
    std::int64_t end;
    AudioPairBlock pairs[kAudioPairCount];  // pair p at 24 + 9228 × p
};
static_assert(sizeof(AudioRecord) == 73848);
static_assert(offsetof(AudioRecord, magic) == 0);
static_assert(offsetof(AudioRecord, discontinuity) == 2);
static_assert(offsetof(AudioRecord, start) == 8);
static_assert(offsetof(AudioRecord, end) == 16);
static_assert(offsetof(AudioRecord, pairs) == 24);
static_assert(offsetof(AudioRecord, pairs[1]) == 24 + 9228);

// One CEA-708 cc_data entry, five 32-bit fields.
struct CaptionEntry {
    std::uint32_t markerBits;  // top five bits of cc_info, 31 when well formed
    std::uint32_t ccValid;     // 0 or 1
    std::uint32_t ccType;      // 0, 1: CEA-608 field 1, 2; 2, 3: DTVCC
    std::uint32_t ccData1;     // low eight bits
    std::uint32_t ccData2;     // low eight bits
};
static_assert(sizeof(CaptionEntry) == 20);
static_assert(offsetof(CaptionEntry, ccValid) == 4);
static_assert(offsetof(CaptionEntry, ccType) == 8);
static_assert(offsetof(CaptionEntry, ccData1) == 12);
static_assert(offsetof(CaptionEntry, ccData2) == 16);

// Entries a caption chunk holds after the record's 20-byte head: 50 in the 1024 bytes of both
// capture and pattern chunks. The capture path sends at most 31 a frame; a pattern run sends its
// caption budget, 1200 × the frame period (48 at 25 fps, 40 at 29.97, 24 at 50, 20 at 59.94).
inline constexpr int kMaxCaptionEntries = (kCaptureCaptionSize.chunkBytes - 20) / 20;

// At offset 0 of a caption chunk; it has no magic. Read at most `count` entries, and never more
// than kMaxCaptionEntries.
struct CaptionRecord {
    std::int64_t start;
    std::int64_t end;
    std::uint8_t count;  // entries used, 0 to kMaxCaptionEntries
    std::uint8_t reserved0[3];
    CaptionEntry entries[kMaxCaptionEntries];
};
static_assert(sizeof(CaptionRecord) >= 20 + 20 * kMaxCaptionEntries);
static_assert(offsetof(CaptionRecord, start) == 0);
static_assert(offsetof(CaptionRecord, end) == 8);
static_assert(offsetof(CaptionRecord, count) == 16);
static_assert(offsetof(CaptionRecord, entries) == 20);
static_assert(kMaxCaptionEntries == 50);
static_assert(sizeof(CaptionRecord) <= kCaptureCaptionSize.chunkBytes &&
              sizeof(CaptionRecord) <= kPatternCaptionSize.chunkBytes);

inline constexpr std::size_t kMaxTeletextDescriptorBytes = 102;  // 2 + 5 × 20
inline constexpr std::size_t kMaxTeletextDataBytes = 1473;       // 1 + 46 × 32
inline constexpr std::uint8_t kTeletextDescriptorTag = 0x46;
inline constexpr std::uint8_t kTeletextDataIdentifier = 0x10;
inline constexpr std::size_t kTeletextDataUnitBytes = 46;

// At offset 0 of a teletext chunk. The structure spans 1608 bytes; its last byte is padding.
struct TeletextRecord {
    std::uint16_t magic;  // kTeletextMagic
    std::uint8_t reserved0[2];
    std::uint32_t descriptorLength;  // bytes used in descriptor: 2 + 5 × n
    std::uint32_t dataLength;        // bytes used in data: 0, or 1 + 46 × m
    std::uint8_t reserved1[4];
    std::int64_t start;
    std::int64_t end;
    std::uint8_t descriptor[kMaxTeletextDescriptorBytes];  // teletext_descriptor (EN 300 468)
    std::uint8_t data[kMaxTeletextDataBytes];              // PES data field (EN 300 472)
};
static_assert(offsetof(TeletextRecord, magic) == 0);
static_assert(offsetof(TeletextRecord, descriptorLength) == 4);
static_assert(offsetof(TeletextRecord, dataLength) == 8);
static_assert(offsetof(TeletextRecord, start) == 16);
static_assert(offsetof(TeletextRecord, end) == 24);
static_assert(offsetof(TeletextRecord, descriptor) == 32);
static_assert(offsetof(TeletextRecord, data) == 134);
static_assert(offsetof(TeletextRecord, data) + kMaxTeletextDataBytes == 1607);
static_assert(sizeof(TeletextRecord) == 1608);

// The clock block: start time of the last published frame.
struct ClockBlock {
    std::int64_t clock;
};
static_assert(sizeof(ClockBlock) == 8);

// The video format block: format code (SDI_VIDEO_STANDARD) and bit depth (8 or 10).
struct FormatBlock {
    std::int32_t formatCode;
    std::int32_t bitDepth;
};
static_assert(sizeof(FormatBlock) == 8);
static_assert(offsetof(FormatBlock, bitDepth) == 4);

static_assert(captureVideoChunkBytes(720, 576, false) == 622112);
static_assert(captureVideoChunkBytes(1920, 1080, true) == 6220832);
static_assert(captureVideoChunkBytes(3840, 2160, true) == 24883232);
static_assert(patternPictureSize(1920, 1080, 10) == capturePictureSize(1920, 1080, true));
static_assert(frameStartTime(1, 30000, 1001) == 333666);

}  // namespace ovtx::simulcast::capture_records::v1
