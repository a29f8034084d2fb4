#include "system/sdi/simulated_board/scenario.h"

#include <json/json.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>

#include "encoding/sdi/sdi_common.h"

namespace ovtx::system::sdi::simulated_board::v1 {
namespace {

namespace sdi = encoding::sdi::sdi_common::v2;
namespace device = deltacast_io::v1;

constexpr std::int64_t kMaxFrames = std::numeric_limits<std::int32_t>::max();
constexpr double kMaxSpeed = 10000;
constexpr std::int32_t kMaxAncLine = 1125;

const std::set<std::string, std::less<>> kOperationNames{
    "VHD_GetApiInfo",          "VHD_GetBoardInfoEx",      "VHD_OpenBoardHandle",   "VHD_CloseBoardHandle",
    "VHD_GetBoardProperty",    "VHD_OpenStreamHandle",    "VHD_CloseStreamHandle", "VHD_StartStream",
    "VHD_StopStream",          "VHD_SetStreamProperty",   "VHD_GetStreamProperty", "VHD_VbiSetCaptureLines",
    "VHD_LockSlotHandle",      "VHD_UnlockSlotHandle",    "VHD_GetSlotBuffer",     "VHD_GetSlotSystemTime",
    "VHD_SlotExtractTimecode", "VHD_SlotAncGetNbPackets", "VHD_SlotAncGetPacket",  "VHD_SlotVbiGetLine",
    "VHD_SlotExtractAudio"};
// Operations that no port or frame narrows down.
const std::set<std::string, std::less<>> kBoardOperationNames{"VHD_GetApiInfo", "VHD_GetBoardInfoEx",
                                                              "VHD_OpenBoardHandle", "VHD_CloseBoardHandle"};

// One value of the document and where it stands, for messages that name the key.
class Node {
  public:
    Node(const Json::Value& value, std::string path, const std::string& origin)
        : m_value(value), m_path(std::move(path)), m_origin(origin) {}

    [[noreturn]] void fail(const std::string& what) const {
        throw ScenarioError(m_path.empty() ? m_origin + ": " + what
                                           : m_origin + ": \"" + m_path + "\": " + what);
    }

    // Checks that the value is an object holding no other keys than `allowed`.
    void object(std::initializer_list<std::string_view> allowed) const {
        if (!m_value.isObject()) {
            fail("expected an object");
        }
        for (const std::string& key : m_value.getMemberNames()) {
            if (std::find(allowed.begin(), allowed.end(), key) == allowed.end()) {
                Node(m_value[key], child(key), m_origin).fail("unknown key");
            }
        }
    }
    bool has(const std::string& key) const { return m_value.isMember(key); }
    Node operator[](const std::string& key) const { return {m_value[key], child(key), m_origin}; }

    std::vector<Node> array() const {
        if (!m_value.isArray()) {
            fail("expected an array");
        }
        std::vector<Node> items;
        for (Json::ArrayIndex i = 0; i < m_value.size(); ++i) {
            items.emplace_back(m_value[i], m_path + "[" + std::to_string(i) + "]", m_origin);
        }
        return items;
    }
    std::vector<std::pair<std::string, Node>> members() const {
        std::vector<std::pair<std::string, Node>> items;
        for (const std::string& key : m_value.getMemberNames()) {
            items.emplace_back(key, (*this)[key]);
        }
        return items;
    }

    bool boolean() const {
        if (!m_value.isBool()) {
            fail("expected true or false");
        }
        return m_value.asBool();
    }
    std::string text() const {
        if (!m_value.isString()) {
            fail("expected a string");
        }
        return m_value.asString();
    }
    double number(double low, double high) const {
        if (!m_value.isNumeric() || m_value.isBool()) {
            fail("expected a number");
        }
        const double value = m_value.asDouble();
        if (value < low || value > high) {
            fail(describe() + " is outside " + plain(low) + " to " + plain(high));
        }
        return value;
    }
    // An integer, or a string of hexadecimal digits after "0x".
    std::int64_t integer(std::int64_t low, std::int64_t high) const {
        std::int64_t value = 0;
        if (m_value.isString()) {
            const std::string text = m_value.asString();
            std::size_t used = 0;
            try {
                if (text.rfind("0x", 0) != 0 || text.size() < 3) {
                    throw std::invalid_argument(text);
                }
                value = static_cast<std::int64_t>(std::stoull(text.substr(2), &used, 16));
            } catch (const std::exception&) {
                fail("expected an integer or \"0x\" and hexadecimal digits");
            }
            if (used + 2 != text.size()) {
                fail("expected an integer or \"0x\" and hexadecimal digits");
            }
        } else if (m_value.isIntegral() && !m_value.isBool()) {
            value = m_value.isInt64() ? m_value.asInt64() : std::numeric_limits<std::int64_t>::max();
        } else {
            fail("expected an integer");
        }
        if (value < low || value > high) {
            fail(describe() + " is outside " + std::to_string(low) + " to " + std::to_string(high));
        }
        return value;
    }
    const std::string& path() const { return m_path; }
    std::string describe() const {
        Json::StreamWriterBuilder builder;
        builder["indentation"] = "";
        return Json::writeString(builder, m_value);
    }

  private:
    static std::string plain(double value) {
        std::ostringstream out;
        out << value;
        return out.str();
    }
    std::string child(const std::string& key) const { return m_path.empty() ? key : m_path + "." + key; }

    const Json::Value& m_value;
    std::string m_path;
    const std::string& m_origin;
};

// "major.minor.build" as a version word.
std::uint32_t versionWord(const Node& node) {
    unsigned major = 0;
    unsigned minor = 0;
    unsigned build = 0;
    char extra = 0;
    const std::string text = node.text();
    if (std::sscanf(text.c_str(), "%u.%u.%u%c", &major, &minor, &build, &extra) != 3 || major > 255 ||
        minor > 255 || build > 0xFFFF) {
        node.fail("expected \"major.minor.build\" (0-255, 0-255, 0-65535)");
    }
    return major << 24 | minor << 16 | build;
}

FrameWindow frameWindow(const Node& node, std::initializer_list<std::string_view> moreKeys = {}) {
    std::vector<std::string_view> keys{"at", "frames"};
    keys.insert(keys.end(), moreKeys.begin(), moreKeys.end());
    if (!node.has("at")) {
        node.fail("\"at\" is missing");
    }
    FrameWindow window;
    window.at = node["at"].integer(0, kMaxFrames);
    if (node.has("frames")) {
        window.frames = node["frames"].integer(1, kMaxFrames);
    }
    return window;
}

std::vector<FrameWindow> frameWindows(const Node& node) {
    std::vector<FrameWindow> windows;
    for (const Node& item : node.array()) {
        item.object({"at", "frames"});
        windows.push_back(frameWindow(item));
    }
    return windows;
}

ErrorInjection errorInjection(const Node& node, bool board) {
    if (board) {
        node.object({"operation", "code"});
    } else {
        node.object({"operation", "code", "at", "frames"});
    }
    ErrorInjection error;
    error.operation = node["operation"].text();
    if (!isOperationName(error.operation)) {
        node["operation"].fail("not an operation of the board");
    }
    if (board != kBoardOperationNames.contains(error.operation)) {
        node["operation"].fail(
            board ? "not an operation of the board itself (give it under a port)"
                  : "an operation of the board itself (give it under \"errors\" at the top)");
    }
    error.code = static_cast<std::uint32_t>(node["code"].integer(1, 0xFFFFFFFF));
    if (node.has("at")) {
        error.window = frameWindow(node);
    } else if (node.has("frames")) {
        node["frames"].fail("needs \"at\"");
    }
    return error;
}

std::vector<ErrorInjection> errorInjections(const Node& node, bool board) {
    std::vector<ErrorInjection> errors;
    for (const Node& item : node.array()) {
        errors.push_back(errorInjection(item, board));
    }
    return errors;
}

SignalSegment signalSegment(const Node& node, bool last) {
    node.object({"format", "standard", "clockDivisor", "noSignal", "frames"});
    SignalSegment segment;
    const int kinds = int(node.has("format")) + int(node.has("standard")) + int(node.has("noSignal"));
    if (kinds != 1) {
        node.fail("give exactly one of \"format\", \"standard\" or \"noSignal\"");
    }
    if (node.has("format")) {
        const Node format = node["format"];
        sdi::SDI_VIDEO_STANDARD code = sdi::NO_FORMAT;
        try {
            code = sdi::formatFromName(format.describe().front() == '"' ? format.text() : format.describe());
        } catch (const std::exception&) {
            format.fail(format.describe() + " is no format code or name");
        }
        const sdi::SdiFormatInfo info(code);
        segment.standard = info.boardStandard;
        segment.clockDivisor = info.clockDivisor;
    } else if (node.has("standard")) {
        segment.standard = static_cast<std::uint32_t>(node["standard"].integer(0, 63));
        segment.clockDivisor =
            node.has("clockDivisor") ? static_cast<std::uint32_t>(node["clockDivisor"].integer(0, 1)) : 0;
    } else {
        if (!node["noSignal"].boolean()) {
            node["noSignal"].fail("only true has a meaning here");
        }
        segment.present = false;
    }
    if (node.has("clockDivisor") && !node.has("standard")) {
        node["clockDivisor"].fail("goes with \"standard\"");
    }
    if (node.has("frames")) {
        segment.frames = node["frames"].integer(1, kMaxFrames);
    } else if (!last) {
        node.fail("\"frames\" is missing (only the last entry lasts for ever)");
    }
    return segment;
}

TimecodeSpec timecodeSpec(const Node& node) {
    node.object({"present", "start", "dropFrame", "missing"});
    TimecodeSpec timecode;
    if (node.has("present")) {
        timecode.present = node["present"].boolean();
    }
    if (node.has("start")) {
        const Node start = node["start"];
        const std::string text = start.text();
        char extra = 0;
        auto& s = timecode.start;
        if (std::sscanf(text.c_str(), "%d:%d:%d:%d%c", &s[0], &s[1], &s[2], &s[3], &extra) != 4 || s[0] < 0 ||
            s[0] > 23 || s[1] < 0 || s[1] > 59 || s[2] < 0 || s[2] > 59 || s[3] < 0 || s[3] > 59) {
            start.fail("expected \"hh:mm:ss:ff\"");
        }
    }
    if (node.has("dropFrame")) {
        timecode.dropFrame = node["dropFrame"].boolean();
    }
    if (node.has("missing")) {
        timecode.missing = frameWindows(node["missing"]);
    }
    return timecode;
}

void audioPair(const Node& node, std::array<AudioPairSpec, kAudioPairs>& pairs) {
    node.object({"pair", "present", "rate", "tone", "level", "statusValid", "statusByte", "sizeErrors"});
    if (!node.has("pair")) {
        node.fail("\"pair\" is missing");
    }
    AudioPairSpec& pair = pairs[static_cast<std::size_t>(node["pair"].integer(0, kAudioPairs - 1))];
    if (node.has("present")) {
        pair.present = node["present"].boolean();
    }
    if (node.has("rate")) {
        const std::int64_t rate = node["rate"].integer(0, 1000000);
        if (rate != 48000 && rate != 44100 && rate != 32000) {
            node["rate"].fail(std::to_string(rate) + " is not 48000, 44100 or 32000");
        }
        pair.rate = static_cast<std::uint32_t>(rate);
    }
    if (node.has("tone")) {
        pair.toneHz = node["tone"].number(0, 20000);
    }
    if (node.has("level")) {
        pair.levelDbfs = node["level"].number(-120, 0);
    }
    if (node.has("statusValid")) {
        pair.statusValid = node["statusValid"].boolean();
    }
    if (node.has("statusByte")) {
        pair.statusByte = static_cast<std::uint8_t>(node["statusByte"].integer(0, 255));
    }
    if (node.has("sizeErrors")) {
        for (const Node& item : node["sizeErrors"].array()) {
            item.object({"at", "frames", "bytes"});
            pair.sizeErrors.push_back(
                {frameWindow(item), static_cast<std::int32_t>(item["bytes"].integer(-100000, 100000))});
        }
    }
}

TeletextSpec teletextSpec(const Node& node) {
    node.object({"pages", "initialPage", "firstAncLine"});
    TeletextSpec teletext;
    if (node.has("pages")) {
        for (const Node& item : node["pages"].array()) {
            item.object({"magazine", "page", "subtitle", "rows"});
            TeletextPageSpec page;
            page.magazine = static_cast<int>(item["magazine"].integer(1, 8));
            page.page = static_cast<int>(item["page"].integer(0, 0xFE));
            if (item.has("subtitle")) {
                page.subtitle = item["subtitle"].boolean();
            }
            if (item.has("rows")) {
                for (const auto& [key, text] : item["rows"].members()) {
                    int row = 0;
                    char extra = 0;
                    if (std::sscanf(key.c_str(), "%d%c", &row, &extra) != 1 || row < 1 || row > 24) {
                        text.fail("a row is named by its number, 1 to 24");
                    }
                    page.rows[row] = text.text();
                }
            }
            teletext.pages.push_back(page);
        }
    }
    if (node.has("initialPage")) {
        teletext.initialPage = static_cast<int>(node["initialPage"].integer(0x100, 0x8FF));
    }
    if (node.has("firstAncLine")) {
        teletext.firstAncLine = static_cast<int>(node["firstAncLine"].integer(1, kMaxAncLine));
    }
    return teletext;
}

std::vector<WssChange> wssChanges(const Node& node) {
    std::vector<WssChange> changes;
    for (const Node& item : node.array()) {
        item.object({"at", "aspect", "value"});
        WssChange change;
        change.at = item["at"].integer(0, kMaxFrames);
        if (item.has("aspect") == item.has("value")) {
            item.fail("give one of \"aspect\" or \"value\"");
        }
        if (item.has("aspect")) {
            const std::string aspect = item["aspect"].text();
            if (aspect != "4:3" && aspect != "16:9") {
                item["aspect"].fail("expected \"4:3\" or \"16:9\"");
            }
            change.value = aspect == "4:3" ? 0x0008 : 0x0007;
        } else {
            change.value = static_cast<std::uint16_t>(item["value"].integer(0, 0x3FFF));
        }
        changes.push_back(change);
    }
    return changes;
}

std::vector<RawAncPacket> rawAncPackets(const Node& node) {
    std::vector<RawAncPacket> packets;
    for (const Node& item : node.array()) {
        item.object({"at", "frames", "line", "did", "sdid", "words"});
        RawAncPacket packet;
        packet.window = frameWindow(item);
        packet.line = static_cast<std::int32_t>(item["line"].integer(1, kMaxAncLine));
        packet.did = static_cast<std::uint8_t>(item["did"].integer(0, 255));
        packet.sdid = static_cast<std::uint8_t>(item["sdid"].integer(0, 255));
        for (const Node& word : item["words"].array()) {
            packet.words.push_back(static_cast<std::uint16_t>(word.integer(0, 0xFFFF)));
        }
        if (packet.words.size() > 255) {
            item["words"].fail("more than 255 words");
        }
        packets.push_back(std::move(packet));
    }
    return packets;
}

PortScenario portScenario(const Node& node) {
    node.object({"signal", "gaps", "drops", "timecode", "audio", "captions", "captionLine", "teletext", "wss",
                 "anc", "errors", "heldByAnotherProcess"});
    PortScenario port;
    if (!node.has("signal")) {
        node.fail("\"signal\" is missing");
    }
    const std::vector<Node> segments = node["signal"].array();
    if (segments.empty()) {
        node["signal"].fail("needs at least one entry");
    }
    for (std::size_t i = 0; i < segments.size(); ++i) {
        port.signal.push_back(signalSegment(segments[i], i + 1 == segments.size()));
    }
    if (node.has("gaps")) {
        port.gaps = frameWindows(node["gaps"]);
    }
    if (node.has("drops")) {
        port.drops = frameWindows(node["drops"]);
    }
    if (node.has("timecode")) {
        port.timecode = timecodeSpec(node["timecode"]);
    }
    if (node.has("audio")) {
        const Node audio = node["audio"];
        audio.object({"pairs"});
        for (const Node& item : audio["pairs"].array()) {
            audioPair(item, port.audio);
        }
    }
    if (node.has("captions")) {
        for (const Node& item : node["captions"].array()) {
            item.object({"at", "field", "text"});
            CaptionSpec caption;
            caption.at = item["at"].integer(0, kMaxFrames);
            caption.field = item.has("field") ? static_cast<int>(item["field"].integer(1, 2)) : 1;
            caption.text = item["text"].text();
            port.captions.push_back(caption);
        }
    }
    if (node.has("captionLine")) {
        port.captionLine = static_cast<int>(node["captionLine"].integer(1, kMaxAncLine));
    }
    if (node.has("teletext")) {
        port.teletext = teletextSpec(node["teletext"]);
    }
    if (node.has("wss")) {
        port.wss = wssChanges(node["wss"]);
    }
    if (node.has("anc")) {
        port.anc = rawAncPackets(node["anc"]);
    }
    if (node.has("errors")) {
        port.errors = errorInjections(node["errors"], false);
    }
    if (node.has("heldByAnotherProcess")) {
        port.heldByAnotherProcess = node["heldByAnotherProcess"].boolean();
    }
    return port;
}

void readBoard(const Node& node, device::BoardInfoEx& board) {
    node.object({"driver", "firmware", "serial", "type", "bus", "rx", "tx"});
    if (node.has("driver")) {
        board.driverVersion = versionWord(node["driver"]);
    }
    if (node.has("firmware")) {
        board.firmwareWord = static_cast<std::uint32_t>(node["firmware"].integer(0, 0xFFFFFFFF));
    }
    if (node.has("serial")) {
        const Node serial = node["serial"];
        const std::string text = serial.text();
        if (text.rfind("0x", 0) != 0 || text.size() < 3 || text.size() > 18 ||
            text.find_first_not_of("0123456789abcdefABCDEF", 2) != std::string::npos) {
            serial.fail("expected \"0x\" and up to 16 hexadecimal digits");
        }
        board.boardIdentifier = std::stoull(text.substr(2), nullptr, 16);
    }
    if (node.has("type")) {
        board.boardType = static_cast<std::uint32_t>(node["type"].integer(0, 255));
    }
    if (node.has("bus")) {
        const std::string bus = node["bus"].text();
        if (bus != "PCIe" && bus != "PCI") {
            node["bus"].fail("expected \"PCIe\" or \"PCI\"");
        }
        board.bus = bus == "PCIe" ? 1 : 0;
    }
    if (node.has("rx")) {
        board.numRxChannels = static_cast<std::int32_t>(node["rx"].integer(0, device::kMaxPorts));
    }
    if (node.has("tx")) {
        board.numTxChannels = static_cast<std::int32_t>(node["tx"].integer(0, device::kMaxPorts));
    }
}

Scenario scenarioOf(const Node& root) {
    root.object({"api", "board", "speed", "errors", "ports"});
    Scenario scenario;
    scenario.board.driverVersion = 0x06090000;
    scenario.board.firmwareWord = 0x18031007;
    scenario.board.boardIdentifier = 0x53494D0000000001ull;
    scenario.board.boardType = 6;
    scenario.board.bus = 1;
    scenario.board.numRxChannels = 2;
    scenario.board.numTxChannels = 2;
    if (root.has("api")) {
        const Node api = root["api"];
        api.object({"present", "version", "boards"});
        if (api.has("present")) {
            scenario.apiPresent = api["present"].boolean();
        }
        if (api.has("version")) {
            scenario.apiVersion = versionWord(api["version"]);
        }
        if (api.has("boards")) {
            scenario.boardCount = static_cast<std::uint32_t>(api["boards"].integer(0, 16));
        }
    }
    if (root.has("board")) {
        readBoard(root["board"], scenario.board);
    }
    if (root.has("speed")) {
        scenario.speed = root["speed"].number(0.001, kMaxSpeed);
    }
    if (root.has("errors")) {
        scenario.errors = errorInjections(root["errors"], true);
    }
    if (root.has("ports")) {
        const Node ports = root["ports"];
        ports.object({"0", "1", "2", "3", "4", "5", "6", "7"});
        for (const auto& [key, port] : ports.members()) {
            const auto number = static_cast<std::uint32_t>(std::stoul(key));
            if (number >= static_cast<std::uint32_t>(scenario.board.numRxChannels)) {
                port.fail("the board has " + std::to_string(scenario.board.numRxChannels) + " inputs");
            }
            scenario.ports[number] = portScenario(port);
        }
    }
    return scenario;
}

}  // namespace

bool isOperationName(const std::string& name) {
    return kOperationNames.contains(name);
}

Scenario parseScenario(const std::string& json, const std::string& origin) {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    Json::Value root;
    std::string errors;
    std::istringstream input(json);
    if (!Json::parseFromStream(builder, input, &root, &errors)) {
        throw ScenarioError(origin + ": not JSON: " + errors.substr(0, errors.find('\n')));
    }
    return scenarioOf(Node(root, "", origin));
}

Scenario loadScenario(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw ScenarioError(path + ": cannot read the simulated board's scenario");
    }
    std::ostringstream text;
    text << file.rdbuf();
    return parseScenario(text.str(), path);
}

}  // namespace ovtx::system::sdi::simulated_board::v1
