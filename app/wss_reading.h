// The aspect ratio of an SD picture, from the wide-screen signalling on its line 23.
//
// The line's first 80 bits (run-in, start code and the aspect ratio group) are compared with those
// of two lines only: full-format 4:3 and full-format 16:9. Either one is stored as the aspect of
// the signal; any other aspect group (letterbox, 14:9, a damaged line) keeps the aspect last
// stored, while a line that can't be read at all gives 4:3 for that frame alone:
//
//   AspectRatio stored = kAspect4x3;                    // set again at every start of a run
//   ... per SD slot, with the slot locked:
//   AspectRatio aspect = readWssAspect(api, report, slot, vbiLineTable, wssLineIndex, stored);
#pragma once

#include <cstddef>
#include <cstdint>

#include "app/engine_report.h"
#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::app::sdi_tap::v1 {

// The aspect ratio of a picture as a video record carries it: 4:3 or 16:9.
struct AspectRatio {
    std::uint8_t numerator = 4;
    std::uint8_t denominator = 3;
    bool operator==(const AspectRatio&) const = default;
};
inline constexpr AspectRatio kAspect4x3{4, 3};
inline constexpr AspectRatio kAspect16x9{16, 9};

// Reads the WSS line, entry `wssLineIndex` of the stream's line table, of the locked `slot`. An
// index outside the table (the lines could not be set up) counts as a line the board can't find.
AspectRatio readWssAspect(system::sdi::deltacast_io::v1::DeviceApi& api, EngineReport& report,
                          system::sdi::deltacast_io::v1::DeviceHandle slot,
                          const system::sdi::deltacast_io::v1::VbiLineTable& lines, std::int32_t wssLineIndex,
                          AspectRatio& stored);

}  // namespace ovtx::app::sdi_tap::v1
