#include "system/sdi/deltacast_io/device_api.h"

#include <array>

#include "cpp_utils/cpp_tools/string_format.h"

namespace ovtx::system::sdi::deltacast_io::v1 {
namespace {

using cpp_utils::cpp_tools::v1::formatText;

constexpr std::array<const char*, 37> kDeviceErrorTexts{
    "No error",
    "Fatal error occurred (should re-install)",
    "Operation failed (undefined error)",
    "Not enough resource to complete the operation",
    "Not implemented yet",
    "Required element was not found",
    "Bad argument value",
    "Invalid pointer",
    "Invalid handle",
    "Invalid property index",
    "Invalid stream or invalid stream type",
    "Resource is currently locked",
    "Board is not available",
    "Incoherent board state or register value",
    "Incoherent driver state",
    "Incoherent library state",
    "Configuration is locked",
    "Requested channel is already used or doesn't exist",
    "Requested stream is already used",
    "Property is read-only",
    "Property is off line-only",
    "Property is of TX streams",
    "Time-out occurred",
    "Stream is not running",
    "Bad input signal, or unsupported standard",
    "Bad genlock signal, or unsupported standard",
    "Frame already locked",
    "Frame already unlocked",
    "Selected video standard is incompatible with running clock system",
    "ANC line is empty",
    "ANC line is full",
    "Buffer too small",
    "Received ANC aren't standard",
    "Invalid configuration",
    "The loaded firmware is not compatible with the installed driver",
    "The loaded VideomasterHD library is not compatible with the installed driver",
    "The fail safe firmware is loaded. You need to upgrade your firmware",
};

std::string exceptionText(std::uint32_t code, const std::string& context) {
    std::string text = context.empty() ? "(" : context + " (";
    return text + deviceErrorText(code) + ")";
}

}  // namespace

const char* deviceErrorText(std::uint32_t code) {
    return code < kDeviceErrorTexts.size() ? kDeviceErrorTexts[code] : "Unknown Error";
}

DeltacastException::DeltacastException(std::uint32_t code, const std::string& context)
    : OrvantaException(exceptionText(code, context)), code(code) {}

void throwIfDeviceError(std::uint32_t code, const std::string& context) {
    if (code != kDeviceOk) {
        throw DeltacastException(code, context);
    }
}

DeviceApi& noDeviceApi() {
    static NoDeviceApi api;
    return api;
}

std::string versionText(std::uint32_t version) {
    return formatText("%d.%d.%d", static_cast<int>(version >> 24), static_cast<int>((version >> 16) & 0xFF),
                      static_cast<int>(version & 0xFFFF));
}

const char* boardTypeName(std::uint32_t boardType) {
    switch (boardType) {
        case 0:
            return "HD board";
        case 1:
            return "HD key board";
        case 2:
            return "SD board";
        case 6:
            return "3G board";
        default:
            return "Unknown board";
    }
}

BoardInfo getBoardReport(DeviceApi& api) {
    BoardInfo info;
    std::uint32_t apiVersion = 0;
    std::uint32_t boardCount = 0;
    info.ApiAvailable = api.getApiInfo(apiVersion, boardCount) == kDeviceOk;
    info.ApiVersion = versionText(apiVersion);
    info.NbSdiBoard = static_cast<std::int32_t>(boardCount);
    if (!info.ApiAvailable || info.NbSdiBoard < 1) {
        return info;
    }
    BoardInfoEx board;
    throwIfDeviceError(api.getBoardInfoEx(0, board), "Cannot get BoardInfoEx");
    info.PropertiesValid = true;
    info.DriverVersion = versionText(board.driverVersion);
    info.FirmwareVersion = formatText("%x", board.firmwareWord & 0xFF);
    info.FirmwareReleaseDate =
        formatText("%02X-%02X-%02X", board.firmwareWord >> 24, (board.firmwareWord >> 16) & 0xFF,
                   (board.firmwareWord >> 8) & 0xFF);
    info.BoardIdentifier = formatText("%08X%08X", static_cast<std::uint32_t>(board.boardIdentifier >> 32),
                                      static_cast<std::uint32_t>(board.boardIdentifier & 0xFFFFFFFF));
    info.BoardType = board.boardType;
    info.IsPCIExpress = board.bus == 1;
    info.NumRXchannels = board.numRxChannels;
    info.NumTXchannels = board.numTxChannels;
    return info;
}

void printBoardReport(log::i_logger::v0::ILogger& logger, const BoardInfo& info) {
    logger.Log(2, "API v%s  Board(s) %d", info.ApiVersion.c_str(), info.NbSdiBoard);
    logger.Log(2, "  Board 0:");
    logger.Log(2, "    - Driver v%s", info.DriverVersion.c_str());
    logger.Log(2, "    - Board firmware v%s (%s)", info.FirmwareVersion.c_str(),
               info.FirmwareReleaseDate.c_str());
    logger.Log(2, "    - Board serial#: 0x%s", info.BoardIdentifier.c_str());
    logger.Log(2, "    - %s type", boardTypeName(info.BoardType));
    logger.Log(2, " on %s bus", info.IsPCIExpress ? "PCIe" : "PCI");
    logger.Log(2, "   - %d In / %d Out", info.NumRXchannels, info.NumTXchannels);
}

DeviceHandle openBoard(DeviceApi& api, std::uint32_t boardIndex) {
    DeviceHandle board = kNoHandle;
    throwIfDeviceError(api.openBoardHandle(boardIndex, board), "Cannot open board handle");
    return board;
}

DeviceHandle openStream(DeviceApi& api, DeviceHandle board, std::uint32_t streamType) {
    DeviceHandle stream = kNoHandle;
    throwIfDeviceError(api.openStreamHandle(board, streamType, kProcessingMode, stream),
                       "Cannot open RX" + std::to_string(streamType) + " stream.");
    return stream;
}

}  // namespace ovtx::system::sdi::deltacast_io::v1
