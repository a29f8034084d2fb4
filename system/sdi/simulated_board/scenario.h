// What a simulated board is and what arrives on its ports: the scenario, read from a JSON file.
//
// docs/simulated-board.md describes every key. A scenario that names an unknown key, or gives a
// value out of its range, is refused with the key's path in the message:
//
//   Scenario scenario = loadScenario("tools/scenarios/hd_1080p25.json");
//   // throws ScenarioError: tools/scenarios/x.json: "ports.1.audio.pairs[0].rate": 22050 is not ...
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::system::sdi::simulated_board::v1 {

class ScenarioError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Input frames [at, at + frames).
struct FrameWindow {
    std::int64_t at = 0;
    std::int64_t frames = 1;
    bool contains(std::int64_t frame) const { return frame >= at && frame < at + frames; }
};

// A stretch of the input signal. The last one lasts for ever.
struct SignalSegment {
    std::int64_t frames = 0;
    bool present = true;
    std::uint32_t standard = deltacast_io::v1::kNoBoardStandard;
    std::uint32_t clockDivisor = deltacast_io::v1::kClockDivisorNoSignal;
};

struct TimecodeSpec {
    bool present = true;
    std::array<int, 4> start{};  // hours, minutes, seconds, frames
    bool dropFrame = false;
    std::vector<FrameWindow> missing;
};

struct AudioSizeError {
    FrameWindow window;
    std::int32_t bytes = 0;  // added to the true size of the pair's frame
};

struct AudioPairSpec {
    bool present = true;
    std::uint32_t rate = 48000;
    double toneHz = 1000;
    double levelDbfs = -20;
    bool statusValid = true;
    std::optional<std::uint8_t> statusByte;  // by default the byte that tells `rate`
    std::vector<AudioSizeError> sizeErrors;
};
inline constexpr std::size_t kAudioPairs = 8;

struct CaptionSpec {
    std::int64_t at = 0;
    int field = 1;
    std::string text;
};

struct TeletextPageSpec {
    int magazine = 8;
    int page = 0x88;
    bool subtitle = false;
    std::map<int, std::string> rows;
};

struct TeletextSpec {
    std::vector<TeletextPageSpec> pages;
    std::optional<int> initialPage;  // magazine in the hundreds digit, as 0x100
    int firstAncLine = 12;
};

struct WssChange {
    std::int64_t at = 0;
    std::uint16_t value = 0;  // the 14 bits, b0 in bit 0
};

struct RawAncPacket {
    FrameWindow window;
    std::int32_t line = 9;
    std::uint8_t did = 0;
    std::uint8_t sdid = 0;
    std::vector<std::uint16_t> words;
};

struct ErrorInjection {
    std::string operation;              // "VHD_LockSlotHandle", ...
    std::optional<FrameWindow> window;  // every call when absent
    std::uint32_t code = 0;
};

struct PortScenario {
    std::vector<SignalSegment> signal;
    std::vector<FrameWindow> gaps;
    std::vector<FrameWindow> drops;
    TimecodeSpec timecode;
    std::array<AudioPairSpec, kAudioPairs> audio;
    std::vector<CaptionSpec> captions;
    int captionLine = 9;
    TeletextSpec teletext;
    std::vector<WssChange> wss;
    std::vector<RawAncPacket> anc;
    std::vector<ErrorInjection> errors;
    bool heldByAnotherProcess = false;
};

struct Scenario {
    bool apiPresent = true;
    std::uint32_t apiVersion = 0x06090000;
    std::uint32_t boardCount = 1;
    deltacast_io::v1::BoardInfoEx board;
    double speed = 1;
    std::vector<ErrorInjection> errors;  // of the board operations
    std::map<std::uint32_t, PortScenario> ports;
};

// The operation names that errors may name.
bool isOperationName(const std::string& name);

// Throws ScenarioError, its text starting with `origin`, for JSON that isn't a scenario.
Scenario parseScenario(const std::string& json, const std::string& origin);
Scenario loadScenario(const std::string& path);

}  // namespace ovtx::system::sdi::simulated_board::v1
