// The board's operations, as the capture logic reaches them, and the record of what board 0 is.
//
// `DeviceApi` is the seam between the capture logic and the board's SDK: a build without the SDK
// uses `noDeviceApi()`, which reports that no API is available, so the daemon runs its pattern
// source. Device failures are `DeltacastException`s worded from the result code:
//
//   throwIfDeviceError(api.getBoardInfoEx(0, board), "Cannot get BoardInfoEx");
//   BoardInfo info = getBoardReport(api);
#pragma once

#include <cstdint>
#include <string>

#include "cpp_utils/exception_utils/exception_utils.h"
#include "log/i_logger.h"

namespace ovtx::system::sdi::deltacast_io::v1 {

// Result codes with a meaning of their own in the logic.
inline constexpr std::uint32_t kDeviceOk = 0;
inline constexpr std::uint32_t kDeviceNotAvailable = 12;
inline constexpr std::uint32_t kDeviceStreamAlreadyUsed = 18;
inline constexpr std::uint32_t kDeviceTimeout = 22;
inline constexpr std::uint32_t kDeviceBadInputSignal = 24;

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

// The board SDK's operations used before any board is opened.
class DeviceApi {
  public:
    virtual ~DeviceApi() = default;
    virtual std::uint32_t getApiInfo(std::uint32_t& apiVersion, std::uint32_t& boardCount) = 0;
    virtual std::uint32_t getBoardInfoEx(std::uint32_t boardIndex, BoardInfoEx& info) = 0;
};

// The device layer of a build without the board's SDK: the API is never available.
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

}  // namespace ovtx::system::sdi::deltacast_io::v1
