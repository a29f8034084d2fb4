#include "system/sdi/simulated_board/scenario.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using namespace ovtx::system::sdi::simulated_board::v1;

std::string failureOf(const std::string& json) {
    try {
        parseScenario(json, "s.json");
    } catch (const ScenarioError& e) {
        return e.what();
    }
    return "<accepted>";
}

struct BadScenario {
    const char* json;
    const char* message;
};

// Each refusal names the key, with its path from the top of the file.
TEST(ScenarioTest, BadKeyOrValue_IsRefusedNamingTheKey) {
    const BadScenario cases[] = {
        {R"({"bored": 1})", R"(s.json: "bored": unknown key)"},
        {R"({"api": {"version": "6.x"}})",
         R"(s.json: "api.version": expected "major.minor.build" (0-255, 0-255, 0-65535))"},
        {R"({"board": {"rx": 9}})", R"(s.json: "board.rx": 9 is outside 0 to 8)"},
        {R"({"board": {"serial": "1234"}})",
         R"(s.json: "board.serial": expected "0x" and up to 16 hexadecimal digits)"},
        {R"({"board": {"bus": "ISA"}})", R"(s.json: "board.bus": expected "PCIe" or "PCI")"},
        {R"({"speed": 0})", R"(s.json: "speed": 0 is outside 0.001 to 10000)"},
        {R"({"ports": {"2": {"signal": [{"format": 3}]}}})", R"(s.json: "ports.2": the board has 2 inputs)"},
        {R"({"ports": {"0": {}}})", R"(s.json: "ports.0": "signal" is missing)"},
        {R"({"ports": {"0": {"signal": [{"format": 1}]}}})",
         R"(s.json: "ports.0.signal[0].format": 1 is no format code or name)"},
        {R"({"ports": {"0": {"signal": [{"format": 3}, {"noSignal": true}]}}})",
         R"(s.json: "ports.0.signal[0]": "frames" is missing (only the last entry lasts for ever))"},
        {R"({"ports": {"0": {"signal": [{"format": 3, "standard": 0}]}}})",
         R"(s.json: "ports.0.signal[0]": give exactly one of "format", "standard" or "noSignal")"},
        {R"({"ports": {"0": {"signal": [{"format": 3}], "audio": {"pairs": [{"pair": 8}]}}}})",
         R"(s.json: "ports.0.audio.pairs[0].pair": 8 is outside 0 to 7)"},
        {R"({"ports": {"0": {"signal": [{"format": 3}], "audio": {"pairs": [{"pair": 1, "rate": 22050}]}}}})",
         R"(s.json: "ports.0.audio.pairs[0].rate": 22050 is not 48000, 44100 or 32000)"},
        {R"({"ports": {"0": {"signal": [{"format": 3}], "timecode": {"start": "25:00:00:00"}}}})",
         R"(s.json: "ports.0.timecode.start": expected "hh:mm:ss:ff")"},
        {R"({"ports": {"0": {"signal": [{"format": 3}], "teletext": {"pages": [{"magazine": 8, "page": "0x1G"}]}}}})",
         R"(s.json: "ports.0.teletext.pages[0].page": expected an integer or "0x" and hexadecimal digits)"},
        {R"({"ports": {"0": {"signal": [{"format": 3}], "wss": [{"at": 0, "aspect": "14:9"}]}}})",
         R"(s.json: "ports.0.wss[0].aspect": expected "4:3" or "16:9")"},
        {R"({"ports": {"0": {"signal": [{"format": 3}], "gaps": [{"frames": 2}]}}})",
         R"(s.json: "ports.0.gaps[0]": "at" is missing)"},
        {R"({"ports": {"0": {"signal": [{"format": 3}], "errors": [{"operation": "VHD_Lock", "code": 2}]}}})",
         R"(s.json: "ports.0.errors[0].operation": not an operation of the board)"},
        {R"({"errors": [{"operation": "VHD_LockSlotHandle", "code": 2}]})",
         R"(s.json: "errors[0].operation": not an operation of the board itself (give it under a port))"},
        {R"({"ports": {"0": {"signal": [{"format": 3}], "anc": [{"at": 0, "line": 9, "did": 97, "sdid": 1, "words": [65536]}]}}})",
         R"(s.json: "ports.0.anc[0].words[0]": 65536 is outside 0 to 65535)"},
        {R"({"ports": {"0": {"signal": [{"format": 3}], "heldByAnotherProcess": 1}}})",
         R"(s.json: "ports.0.heldByAnotherProcess": expected true or false)"},
        {R"([1])", R"(s.json: expected an object)"},
        {R"({"speed": 1,})", "s.json: not JSON: * Line 1, Column 13"},
    };
    for (const BadScenario& bad : cases) {
        EXPECT_EQ(failureOf(bad.json).substr(0, std::string(bad.message).size()), bad.message) << bad.json;
    }
}

// The shipped examples are what users start from; each must stay a valid scenario.
TEST(ScenarioTest, ShippedExamples_AreAccepted) {
    int examples = 0;
    for (const auto& entry : std::filesystem::directory_iterator(SDI_TAP_SCENARIO_DIR)) {
        EXPECT_NO_THROW(loadScenario(entry.path().string())) << entry.path();
        ++examples;
    }
    EXPECT_GE(examples, 4);
}

TEST(ScenarioTest, Values_AreReadAsWritten) {
    const Scenario scenario = parseScenario(R"({
        "api": {"version": "1.2.3", "boards": 2},
        "board": {"firmware": "0x18031007", "serial": "0xABCDEF0123456789", "rx": 4},
        "ports": {"3": {"signal": [{"standard": 8, "clockDivisor": 1, "frames": 10}, {"noSignal": true}],
                        "wss": [{"at": 5, "value": "0x2007"}]}}})",
                                            "s.json");
    EXPECT_EQ(scenario.apiVersion, 0x01020003u);
    EXPECT_EQ(scenario.board.firmwareWord, 0x18031007u);
    EXPECT_EQ(scenario.board.boardIdentifier, 0xABCDEF0123456789ull);
    const PortScenario& port = scenario.ports.at(3);
    ASSERT_EQ(port.signal.size(), 2u);
    EXPECT_EQ(port.signal[0].standard, 8u);
    EXPECT_EQ(port.signal[0].clockDivisor, 1u);
    EXPECT_FALSE(port.signal[1].present);
    EXPECT_EQ(port.wss.at(0).value, 0x2007);
}

}  // namespace
