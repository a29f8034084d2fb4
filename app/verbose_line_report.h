// The engine's verbose report as the line reading of the device layer takes it: what a slot's
// blanking lines failed to give is told only on runs with -print, and costs nothing otherwise.
//
//   readAncPackets(api, slot, 0x61, 0x01, verboseLineReport(report), packets);
#pragma once

#include "app/engine_report.h"
#include "system/sdi/deltacast_io/line_reading.h"

namespace ovtx::app::sdi_tap::v1 {

inline system::sdi::deltacast_io::v1::LineReadReport verboseLineReport(EngineReport& report) {
    if (!report.verbose()) {
        return {};
    }
    return [&report](const char* text) { report(false, "%s", text); };
}

}  // namespace ovtx::app::sdi_tap::v1
