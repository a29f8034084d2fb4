// The command line of one run: which SDI port (or the four 4K quadrant ports), which video format,
// which debug switches, and how each audio pair is sampled.
//
//   RunParameters parameters;
//   bool pattern = false;
//   if (!parseArguments(arguments, parameters, portLimit, pattern)) {
//       printUsage(std::cerr, arguments[0], portLimit);
//       return 1;
//   }
//
// Options and values are compared in lower case, so `-SDIPORT` and `-sdiport` are one option.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace ovtx::app::sdi_tap::v1 {

// Sampling codes of an audio pair.
enum AudioSamplingCode : std::uint32_t {
    SAMPLING_AUTO = 0,
    SAMPLING_48K = 1,
    SAMPLING_44K1 = 2,
    SAMPLING_32K = 3
};

struct RunParameters {
    std::uint32_t boardIndex = 0;
    std::int32_t sdiPort = -1;  // -1: not given
    bool fourHdQuads = false;
    bool print = false;
    bool useTimecode = false;
    bool use10Bit = false;
    std::int32_t videoFormat = -1;  // -1: not given
    std::array<std::uint32_t, 8> audioSampling{};
};

// True for the eight 4K format codes (101 to 108).
bool isFourKFormat(std::int32_t code);

// Fills `parameters` from the process's arguments (the program's path first). Returns true when
// the run can go on. The specific message, where there is one, is written to `errors`; the caller
// prints the usage text after it on false.
bool parseArguments(const std::vector<std::string>& arguments, RunParameters& parameters,
                    std::uint32_t portLimit, bool& patternRequested, std::ostream& errors);

// The same, with messages on the standard error stream.
bool parseArguments(const std::vector<std::string>& arguments, RunParameters& parameters,
                    std::uint32_t portLimit, bool& patternRequested);

// The usage text, `programPath` as the first argument was given.
void printUsage(std::ostream& out, const std::string& programPath, std::uint32_t portLimit);

// The C library's atoi, with a value beyond 32 bits saturating at the limits.
std::int32_t parseNumber(const std::string& text);

}  // namespace ovtx::app::sdi_tap::v1
