#include "app/run_parameters.h"

#include <algorithm>
#include <cctype>
#include <deque>
#include <iostream>
#include <limits>
#include <optional>
#include <regex>

namespace ovtx::app::sdi_tap::v1 {
namespace {

using Queue = std::deque<std::string>;

std::string toLower(const std::string& text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

bool takeNumber(Queue& queue, const char* option, std::int32_t& value, std::ostream& errors) {
    if (queue.empty()) {
        errors << "Expected number after " << option << std::endl;
        return false;
    }
    value = parseNumber(queue.front());
    queue.pop_front();
    return true;
}

bool checkPortRange(std::int32_t port, std::uint32_t portLimit, std::ostream& errors) {
    if (port >= 0 && static_cast<std::uint32_t>(port) < portLimit) {
        return true;
    }
    if (portLimit == 1) {
        errors << "SdiPort must be 0" << std::endl;
    } else {
        errors << "SdiPort must be in [0;" << portLimit - 1 << "]" << std::endl;
    }
    return false;
}

std::optional<std::uint32_t> samplingCode(const std::string& value) {
    if (value == "48") {
        return SAMPLING_48K;
    }
    if (value == "44.1") {
        return SAMPLING_44K1;
    }
    if (value == "32") {
        return SAMPLING_32K;
    }
    if (value == "auto") {
        return SAMPLING_AUTO;
    }
    return std::nullopt;
}

// A token that names no option: "-sampling_<X> <val>" searched anywhere in it. A pair of 8 or 9 is
// dropped without consuming its value.
bool takeSampling(const std::string& token, Queue& queue, RunParameters& parameters) {
    const std::regex pattern("-sampling_([0-9])");
    std::smatch match;
    if (!std::regex_search(token, match, pattern)) {
        return false;
    }
    const int pair = std::stoi(match[1].str());
    if (pair >= 8) {
        return true;
    }
    if (queue.empty()) {
        return false;
    }
    const std::optional<std::uint32_t> code = samplingCode(queue.front());
    queue.pop_front();
    if (!code) {
        return false;
    }
    parameters.audioSampling[static_cast<std::size_t>(pair)] = *code;
    return true;
}

bool finalChecks(const RunParameters& parameters, std::ostream& errors) {
    const bool portGiven = parameters.sdiPort >= 0;
    if (portGiven == parameters.fourHdQuads) {
        errors << "Arguments -port and -fourHDquads are mandatory and exclusive." << std::endl;
        return false;
    }
    if (parameters.videoFormat < 0 || parameters.videoFormat > 36) {
        errors << "Invalid argument : videoformat " << std::endl;
        return false;
    }
    // The number printed is the literal 0, whatever the format given.
    if (parameters.fourHdQuads && !isFourKFormat(parameters.videoFormat)) {
        errors << "Invalid argument : videoformat " << 0 << " is not a 4K format" << std::endl;
        return false;
    }
    if (!parameters.fourHdQuads && isFourKFormat(parameters.videoFormat)) {
        errors << "Invalid argument : videoformat " << 0 << " is a 4K format" << std::endl;
        return false;
    }
    return true;
}

}  // namespace

bool isFourKFormat(std::int32_t code) {
    constexpr std::int32_t kFourKCodes[] = {101, 106, 102, 103, 107, 104, 105, 108};
    return std::find(std::begin(kFourKCodes), std::end(kFourKCodes), code) != std::end(kFourKCodes);
}

std::int32_t parseNumber(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || (text[i] >= 9 && text[i] <= 13))) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    constexpr std::int64_t kLimit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
    std::int64_t magnitude = 0;
    for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
        magnitude = std::min(magnitude * 10 + (text[i] - '0'), kLimit);
    }
    const std::int64_t value = negative ? -magnitude : magnitude;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, std::numeric_limits<std::int32_t>::min(),
                                                              std::numeric_limits<std::int32_t>::max()));
}

bool parseArguments(const std::vector<std::string>& arguments, RunParameters& parameters,
                    std::uint32_t portLimit, bool& patternRequested, std::ostream& errors) {
    Queue queue;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        queue.push_back(toLower(arguments[i]));
    }
    while (!queue.empty()) {
        const std::string token = queue.front();
        queue.pop_front();
        if (token == "-sdiport") {
            if (!takeNumber(queue, "-sdiport", parameters.sdiPort, errors) ||
                !checkPortRange(parameters.sdiPort, portLimit, errors)) {
                return false;
            }
        } else if (token == "-fourhdquads") {
            parameters.fourHdQuads = true;
        } else if (token == "-print") {
            parameters.print = true;
        } else if (token == "-usetc") {
            parameters.useTimecode = true;
        } else if (token == "-videoformat") {
            if (!takeNumber(queue, "-videoformat", parameters.videoFormat, errors)) {
                return false;
            }
        } else if (token == "-pattern") {
            patternRequested = true;
        } else if (token == "-use10bit") {
            parameters.use10Bit = true;
        } else if (!takeSampling(token, queue, parameters)) {
            return false;
        }
    }
    return finalChecks(parameters, errors);
}

bool parseArguments(const std::vector<std::string>& arguments, RunParameters& parameters,
                    std::uint32_t portLimit, bool& patternRequested) {
    return parseArguments(arguments, parameters, portLimit, patternRequested, std::cerr);
}

void printUsage(std::ostream& out, const std::string& programPath, std::uint32_t portLimit) {
    const std::string options =
        " -videoformat <videoformat> [-print] [-usetc] [-pattern] [-use10bit] [-sampling_<X> <val>]";
    out << std::endl;
    out << "Usage: " << std::endl;
    out << "  1 : " << programPath << " -sdiport <port>" << options << std::endl;
    out << "  2 : " << programPath << " -fourHDquads   " << options << std::endl;
    out << std::endl;
    out << "Usage 1 must be used for classic HD/SD video formats." << std::endl;
    out << "Usage 2 must be used for 4K video formats, which use 4HD signal on 4 SDI ports." << std::endl;
    if (portLimit > 1) {
        out << " <port> : [0.." << portLimit - 1 << "] SDI port where exe_sdi_tap is capturing SDI"
            << std::endl;
    } else {
        out << " <port> : [0] SDI port where exe_sdi_tap is capturing SDI" << std::endl;
    }
    out << " <videoformat> : [0..8] Video format of the SDI Stream" << std::endl;
    out << " [-print] : display debug info" << std::endl;
    out << " [-usetc] : use timecode" << std::endl;
    out << " [-pattern] : generates audio/video pattern instead of grabbing frames from the SDI board"
        << std::endl;
    out << " [-use10bit] : extract 10bit buffer video frames in SDI signal, wrie them to shared memory"
        << std::endl;
    out << " [-sampling_<X> <val>] : use 'val' as sampling rate for pair X. X in [0..7], val in "
           "(48|44.1|32|auto)"
        << std::endl;
    out << std::endl;
    out << "Example:" << std::endl;
    out << "  " << programPath << " -sdiport 2 -videoformat 2 -print" << std::endl;
}

}  // namespace ovtx::app::sdi_tap::v1
