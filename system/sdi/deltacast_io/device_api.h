// The board's operations, as the capture logic reaches them, and the record of what board 0 is.
//
// `DeviceApi` is the seam between the capture logic and the board's SDK: every capture step
// reaches the board through its operations and the numbers below. `noDeviceApi()` is the board of
// a machine without one (no API, so the daemon runs its pattern source); the simulated board
// (system/sdi/simulated_board) is another. Device failures are `DeltacastException`s worded from
// the result code:
//
//   BoardInfo info = getBoardReport(api);
//   DeviceHandle board = openBoard(api, 0);
//   DeviceHandle stream = openStream(api, board, kPortNumbers[1].streamType);
//   throwIfDeviceError(api.setStreamProperty(stream, kStreamBufferDepth, 6), "Cannot set buffer depth to 6");
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "cpp_utils/exception_utils/exception_utils.h"
#include "log/i_logger.h"

namespace ovtx::system::sdi::deltacast_io::v1 {

// Result codes with a meaning of their own in the logic, and those the device layers give.
inline constexpr std::uint32_t kDeviceOk = 0;
inline constexpr std::uint32_t kDeviceOperationFailed = 2;
inline constexpr std::uint32_t kDeviceNotFound = 5;
inline constexpr std::uint32_t kDeviceBadArgument = 6;
inline constexpr std::uint32_t kDeviceInvalidPointer = 7;
inline constexpr std::uint32_t kDeviceInvalidHandle = 8;
inline constexpr std::uint32_t kDeviceInvalidProperty = 9;
inline constexpr std::uint32_t kDeviceInvalidStream = 10;
inline constexpr std::uint32_t kDeviceNotAvailable = 12;
inline constexpr std::uint32_t kDeviceConfigurationLocked = 16;
inline constexpr std::uint32_t kDeviceStreamAlreadyUsed = 18;
inline constexpr std::uint32_t kDevicePropertyReadOnly = 19;
inline constexpr std::uint32_t kDeviceTimeout = 22;
inline constexpr std::uint32_t kDeviceStreamNotRunning = 23;
inline constexpr std::uint32_t kDeviceBadInputSignal = 24;
inline constexpr std::uint32_t kDeviceFrameAlreadyUnlocked = 27;
inline constexpr std::uint32_t kDeviceBufferTooSmall = 31;

// The sentence for a device result code; "Unknown Error" for codes outside the table.
const char* deviceErrorText(std::uint32_t code);

// A device failure: the result code and "<context> (<sentence>)", or "(<sentence>)" without context.
class DeltacastException : public cpp_utils::exception_utils::v1::OrvantaException {
  public:
    DeltacastException(std::uint32_t code, const std::string& context);
    std::uint32_t code;
};

void throwIfDeviceError(std::uint32_t code, const std::string& context);

// What VHD_GetBoardInfoEx gives for one board.
struct BoardInfoEx {
    std::uint32_t driverVersion = 0;
    std::uint32_t firmwareWord = 0;
    std::uint64_t boardIdentifier = 0;
    std::uint32_t boardType = 0;
    std::uint32_t bus = 0;  // 1 is PCI Express
    std::int32_t numRxChannels = 0;
    std::int32_t numTxChannels = 0;
};

// Board, stream and slot handles are opaque 64-bit values; kNoHandle means that none is held.
using DeviceHandle = std::int64_t;
inline constexpr DeviceHandle kNoHandle = -1;

// Stream properties.
inline constexpr std::uint32_t kStreamTransferScheme = 2;
inline constexpr std::uint32_t kStreamVideoStandard = 3;
inline constexpr std::uint32_t kStreamBufferPacking = 4;
inline constexpr std::uint32_t kStreamBufferDepth = 5;
inline constexpr std::uint32_t kStreamTimeout = 6;  // milliseconds a slot lock waits
inline constexpr std::uint32_t kStreamSlotCounter = 0x1000005;
inline constexpr std::uint32_t kStreamSlotsDropped = 0x1000006;
inline constexpr std::uint32_t kStreamSdiInterface = 0x2000005;

// Values of the stream properties.
inline constexpr std::uint32_t kTransferSchemeSlaved = 1;
inline constexpr std::uint32_t kPackingPacked8Bit = 0;    // 4:2:2, two pixels in four bytes Cb Y Cr Y
inline constexpr std::uint32_t kPackingPacked10Bit = 2;   // 4:2:2, six pixels in sixteen bytes (v210)
inline constexpr std::uint32_t kPackingPlanar8Bit = 11;   // 4:2:0 planes Y, Cb, Cr, one byte a sample
inline constexpr std::uint32_t kPackingPlanar10Bit = 13;  // the same planes, 16-bit little-endian samples
inline constexpr std::uint32_t kSdiInterfaceAuto = 0;
inline constexpr std::uint32_t kProcessingMode = 0x2000001;  // of every input stream

// The clock divisor a port reports while it sees no signal, and the standard of no signal.
inline constexpr std::uint32_t kClockDivisorNoSignal = 2;
inline constexpr std::uint32_t kNoBoardStandard = 37;

// The numbers of one input port: its stream type and the board properties of its input.
struct PortNumbers {
    std::uint32_t streamType;
    std::uint32_t standardProperty;
    std::uint32_t clockDivisorProperty;
};
inline constexpr std::size_t kMaxPorts = 8;
inline constexpr std::array<PortNumbers, kMaxPorts> kPortNumbers{{{0, 0x2000000, 0x200000A},
                                                                  {1, 0x2000001, 0x200000B},
                                                                  {9, 0x2000002, 0x200000C},
                                                                  {10, 0x2000003, 0x200000D},
                                                                  {20, 0x2000018, 0x200001C},
                                                                  {21, 0x2000019, 0x200001D},
                                                                  {22, 0x200001A, 0x200001E},
                                                                  {23, 0x200001B, 0x200001F}}};

// The VBI lines a stream captures: line number and two flags per entry, unused entries all zero.
struct VbiLineEntry {
    std::uint32_t line = 0;
    std::uint32_t firstFlag = 0;
    std::uint32_t secondFlag = 0;
};
inline constexpr std::size_t kVbiLineEntries = 64;
using VbiLineTable = std::array<VbiLineEntry, kVbiLineEntries>;

// What VHD_GetSlotBuffer gives for buffer type 0.
inline constexpr std::uint32_t kVideoBuffer = 0;
// The sample selector of the line operations: luminance samples.
inline constexpr std::uint32_t kLumaSamples = 0;

// The timecode record of VHD_SlotExtractTimecode, 32 bytes: the caller sets `source` to 3 and
// `line` to 16; the board fills hours to frames at bytes 20 to 23 and the drop-frame flag.
struct TimecodeRecord {
    std::uint32_t source = 0;
    std::uint32_t line = 0;
    std::uint8_t reserved[12] = {};
    std::uint8_t hours = 0;
    std::uint8_t minutes = 0;
    std::uint8_t seconds = 0;
    std::uint8_t frames = 0;
    std::uint8_t dropFrame = 0;
    std::uint8_t reserved2[7] = {};
};
static_assert(sizeof(TimecodeRecord) == 32 && offsetof(TimecodeRecord, hours) == 20);

// One ancillary packet of VHD_SlotAncGetPacket: its user data words, of which the low byte counts
// (the high bits carry the word's parity). Valid until the slot is unlocked.
struct AncPacket {
    std::uint8_t did = 0;
    std::uint8_t sdid = 0;
    std::uint32_t wordCount = 0;
    const std::uint16_t* words = nullptr;
};

// The audio description of VHD_SlotExtractAudio: four groups of four channels. A stereo pair is
// delivered through the even channel of a group: the caller gives that channel a buffer and its
// byte size in `dataSize`, the board writes the samples and sets `dataSize` to the bytes of the
// frame, which can exceed the buffer (then the rest is lost).
struct AudioChannelInfo {
    std::uint32_t mode = 0;    // 2 stereo
    std::uint32_t format = 0;  // 1 signed 16-bit samples
    std::uint32_t reserved0 = 0;
    std::uint32_t statusValid = 0;  // 1 when the channel status of the signal is valid
    std::uint8_t statusBytes[24] = {};
    std::uint8_t reserved1[28] = {};
    std::uint32_t dataSize = 0;
    std::uint8_t* data = nullptr;
};
static_assert(sizeof(AudioChannelInfo) == 80 && offsetof(AudioChannelInfo, statusBytes) == 16 &&
              offsetof(AudioChannelInfo, dataSize) == 68 && offsetof(AudioChannelInfo, data) == 72);

struct AudioGroupInfo {
    std::uint8_t reserved[64] = {};
    std::array<AudioChannelInfo, 4> channels{};
    std::uint8_t reserved2[16] = {};
};
static_assert(sizeof(AudioGroupInfo) == 400 && offsetof(AudioGroupInfo, channels) == 64);

inline constexpr std::size_t kAudioGroups = 4;
struct AudioInfo {
    std::array<AudioGroupInfo, kAudioGroups> groups{};
};
static_assert(sizeof(AudioInfo) == 1600);

inline constexpr std::uint32_t kAudioModeStereo = 2;
inline constexpr std::uint32_t kAudioFormat16Bit = 1;
// The sampling rates of VHD_GetNbSamples.
inline constexpr std::uint32_t kAudioRate48kHz = 0;
inline constexpr std::uint32_t kAudioRate44_1kHz = 1;
inline constexpr std::uint32_t kAudioRate32kHz = 2;

// Bit rates of VHD_VbiDigitalize for the lines this system reads, in hertz.
inline constexpr float kCaptionBitRate = 503496.5f;
inline constexpr float kTeletextBitRate = 6937500.0f;
inline constexpr float kWssBitRate = 5000000.0f;

// The board SDK's operations that the capture logic uses, all on board 0. Every operation that
// returns a result returns a device result code (0 success), except VHD_GetBlockSize and
// VHD_GetNbSamples, which return their count. Buffers given out stay valid until the slot is
// unlocked.
class DeviceApi {
  public:
    virtual ~DeviceApi() = default;

    // VHD_GetApiInfo: version as major in bits 24-31, minor in 16-23, build in 0-15.
    virtual std::uint32_t getApiInfo(std::uint32_t& apiVersion, std::uint32_t& boardCount) = 0;
    // VHD_GetBoardInfoEx.
    virtual std::uint32_t getBoardInfoEx(std::uint32_t boardIndex, BoardInfoEx& info) = 0;

    // VHD_OpenBoardHandle, VHD_CloseBoardHandle.
    virtual std::uint32_t openBoardHandle(std::uint32_t boardIndex, DeviceHandle& board) = 0;
    virtual std::uint32_t closeBoardHandle(DeviceHandle board) = 0;
    // VHD_GetBoardProperty: code 24 when the port of the property has no usable signal.
    virtual std::uint32_t getBoardProperty(DeviceHandle board, std::uint32_t property,
                                           std::uint32_t& value) = 0;

    // VHD_OpenStreamHandle (one input stream), VHD_CloseStreamHandle.
    virtual std::uint32_t openStreamHandle(DeviceHandle board, std::uint32_t streamType,
                                           std::uint32_t processingMode, DeviceHandle& stream) = 0;
    virtual std::uint32_t closeStreamHandle(DeviceHandle stream) = 0;
    // VHD_StartStream, VHD_StopStream.
    virtual std::uint32_t startStream(DeviceHandle stream) = 0;
    virtual std::uint32_t stopStream(DeviceHandle stream) = 0;
    // VHD_SetStreamProperty, VHD_GetStreamProperty.
    virtual std::uint32_t setStreamProperty(DeviceHandle stream, std::uint32_t property,
                                            std::uint32_t value) = 0;
    virtual std::uint32_t getStreamProperty(DeviceHandle stream, std::uint32_t property,
                                            std::uint32_t& value) = 0;
    // VHD_VbiSetCaptureLines.
    virtual std::uint32_t vbiSetCaptureLines(DeviceHandle stream, const VbiLineTable& lines) = 0;

    // VHD_LockSlotHandle: waits for the next frame as long as the timeout property says; code 22
    // when the time is up. VHD_UnlockSlotHandle gives the slot back.
    virtual std::uint32_t lockSlotHandle(DeviceHandle stream, DeviceHandle& slot) = 0;
    virtual std::uint32_t unlockSlotHandle(DeviceHandle slot) = 0;
    // VHD_GetSlotBuffer: the video buffer (type 0) of the slot.
    virtual std::uint32_t getSlotBuffer(DeviceHandle slot, std::uint32_t bufferType, std::uint8_t*& buffer,
                                        std::uint32_t& size) = 0;
    // VHD_GetSlotSystemTime: capture time of the slot in microseconds.
    virtual std::uint32_t getSlotSystemTime(DeviceHandle slot, std::uint64_t& time) = 0;
    // VHD_SlotExtractTimecode.
    virtual std::uint32_t slotExtractTimecode(DeviceHandle slot, TimecodeRecord& timecode) = 0;
    // VHD_SlotAncGetNbPackets, VHD_SlotAncGetPacket: the ancillary packets of one line.
    virtual std::uint32_t slotAncGetNbPackets(DeviceHandle slot, std::int32_t line, std::uint32_t samples,
                                              std::int32_t& count) = 0;
    virtual std::uint32_t slotAncGetPacket(DeviceHandle slot, std::int32_t line, std::uint32_t samples,
                                           std::int32_t index, const AncPacket*& packet) = 0;
    // VHD_SlotVbiGetLine: the raw 8-bit samples of a captured line.
    virtual std::uint32_t slotVbiGetLine(DeviceHandle slot, std::int32_t line, std::uint32_t selector,
                                         const std::uint8_t*& data, std::uint32_t& size) = 0;
    // VHD_SlotExtractAudio.
    virtual std::uint32_t slotExtractAudio(DeviceHandle slot, AudioInfo& audio) = 0;

    // VHD_GetBlockSize: bytes of one sample of that format and mode, 0 if none.
    virtual std::uint32_t getBlockSize(std::uint32_t format, std::uint32_t mode) = 0;
    // VHD_GetNbSamples: audio samples in one frame of the standard at that rate.
    virtual std::uint32_t getNbSamples(std::uint32_t boardStandard, std::uint32_t clockDivisor,
                                       std::uint32_t rate) = 0;
    // VHD_VbiDigitalize: slices a raw line into bytes, the first bit received in the high bit of
    // the first byte, from the start of the clock run-in; `bits` is asked for and then given.
    virtual std::uint32_t vbiDigitalize(const std::uint8_t* line, std::uint32_t size, bool highDefinition,
                                        float bitRate, std::uint8_t* out, std::uint32_t& bits) = 0;
};

// The device layer of a build without the board's SDK: the API is never available, and every
// other operation answers "Board is not available" (code 12). Test doubles start from it.
class NoDeviceApi : public DeviceApi {
  public:
    std::uint32_t getApiInfo(std::uint32_t&, std::uint32_t&) override { return kDeviceNotAvailable; }
    std::uint32_t getBoardInfoEx(std::uint32_t, BoardInfoEx&) override { return kDeviceNotAvailable; }
    std::uint32_t openBoardHandle(std::uint32_t, DeviceHandle&) override { return kDeviceNotAvailable; }
    std::uint32_t closeBoardHandle(DeviceHandle) override { return kDeviceNotAvailable; }
    std::uint32_t getBoardProperty(DeviceHandle, std::uint32_t, std::uint32_t&) override {
        return kDeviceNotAvailable;
    }
    std::uint32_t openStreamHandle(DeviceHandle, std::uint32_t, std::uint32_t, DeviceHandle&) override {
        return kDeviceNotAvailable;
    }
    std::uint32_t closeStreamHandle(DeviceHandle) override { return kDeviceNotAvailable; }
    std::uint32_t startStream(DeviceHandle) override { return kDeviceNotAvailable; }
    std::uint32_t stopStream(DeviceHandle) override { return kDeviceNotAvailable; }
    std::uint32_t setStreamProperty(DeviceHandle, std::uint32_t, std::uint32_t) override {
        return kDeviceNotAvailable;
    }
    std::uint32_t getStreamProperty(DeviceHandle, std::uint32_t, std::uint32_t&) override {
        return kDeviceNotAvailable;
    }
    std::uint32_t vbiSetCaptureLines(DeviceHandle, const VbiLineTable&) override {
        return kDeviceNotAvailable;
    }
    std::uint32_t lockSlotHandle(DeviceHandle, DeviceHandle&) override { return kDeviceNotAvailable; }
    std::uint32_t unlockSlotHandle(DeviceHandle) override { return kDeviceNotAvailable; }
    std::uint32_t getSlotBuffer(DeviceHandle, std::uint32_t, std::uint8_t*&, std::uint32_t&) override {
        return kDeviceNotAvailable;
    }
    std::uint32_t getSlotSystemTime(DeviceHandle, std::uint64_t&) override { return kDeviceNotAvailable; }
    std::uint32_t slotExtractTimecode(DeviceHandle, TimecodeRecord&) override { return kDeviceNotAvailable; }
    std::uint32_t slotAncGetNbPackets(DeviceHandle, std::int32_t, std::uint32_t, std::int32_t&) override {
        return kDeviceNotAvailable;
    }
    std::uint32_t slotAncGetPacket(DeviceHandle, std::int32_t, std::uint32_t, std::int32_t,
                                   const AncPacket*&) override {
        return kDeviceNotAvailable;
    }
    std::uint32_t slotVbiGetLine(DeviceHandle, std::int32_t, std::uint32_t, const std::uint8_t*&,
                                 std::uint32_t&) override {
        return kDeviceNotAvailable;
    }
    std::uint32_t slotExtractAudio(DeviceHandle, AudioInfo&) override { return kDeviceNotAvailable; }
    std::uint32_t getBlockSize(std::uint32_t, std::uint32_t) override { return 0; }
    std::uint32_t getNbSamples(std::uint32_t, std::uint32_t, std::uint32_t) override { return 0; }
    std::uint32_t vbiDigitalize(const std::uint8_t*, std::uint32_t, bool, float, std::uint8_t*,
                                std::uint32_t&) override {
        return kDeviceNotAvailable;
    }
};

DeviceApi& noDeviceApi();

// The record of the API and of board 0.
struct BoardInfo {
    bool ApiAvailable = false;
    std::int32_t NbSdiBoard = 0;
    std::string ApiVersion;
    bool PropertiesValid = false;
    std::string DriverVersion;
    std::string FirmwareVersion;
    std::string FirmwareReleaseDate;
    std::string BoardIdentifier;
    std::uint32_t BoardType = 0;
    bool IsPCIExpress = false;
    std::int32_t NumRXchannels = 0;
    std::int32_t NumTXchannels = 0;
};

// "%d.%d.%d" of a version word: major in bits 24-31, minor in 16-23, build in 0-15.
std::string versionText(std::uint32_t version);
const char* boardTypeName(std::uint32_t boardType);

// Fills the record; throws DeltacastException("Cannot get BoardInfoEx") when board 0 can't be read.
BoardInfo getBoardReport(DeviceApi& api);
void printBoardReport(log::i_logger::v0::ILogger& logger, const BoardInfo& info);

// VHD_OpenBoardHandle; throws DeltacastException("Cannot open board handle") on failure.
DeviceHandle openBoard(DeviceApi& api, std::uint32_t boardIndex);
// VHD_OpenStreamHandle with the processing mode of every stream; throws
// DeltacastException("Cannot open RX<streamType> stream.") on failure.
DeviceHandle openStream(DeviceApi& api, DeviceHandle board, std::uint32_t streamType);

}  // namespace ovtx::system::sdi::deltacast_io::v1
