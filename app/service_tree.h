// What the daemon shows of itself through its REST service: one tree of abstract variables over
// the capture engine's state and the board information.
//
// The tree holds no copy of the engine's state: every request builds fresh views whose closures
// read the engine at that moment. On a pattern run there is no engine and the views answer with
// fixed values (no format, no audio). Nothing written through the tree reaches the engine: writes
// of its leaves succeed and change nothing.
//
//   ObjectFactory root = buildServiceTree(captureEngine.load(), parameters.fourHdQuads, boardInfo);
//   AbstractObjectWebService service(&logger, root, httpBaseUrl(), "/sdi_tap/" + portName, ...);
//
// The tree (vector indices in paths count from 1):
//   InputVideoFormat                union AVAILABLE_SDI_INPUT | UNAVAILABLE_SDI_INPUT, each a
//                                   struct with the enum Standard (a format name, or NO_FORMAT)
//   AudioSampling/<1..8>            struct ChannelStatus (enum: "", 48KHZ, 44.1KHZ, 32KHZ,
//                                   NO_AUDIO) and DataRate (int32, percent of the expected size)
//   QuadrantsVideoFormat/<1..4>     the union above per quadrant, only in four-quadrant mode
//   BoardInfo                       ApiAvailable, NbSdiBoard, ApiVersion, PropertiesValid and
//                                   Properties (DriverVersion, FirmwareVersion,
//                                   FirmwareReleaseDate, BoardType, IsPCIExpress, NumRXchannels,
//                                   NumTXchannels), as read when the tree was built
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/capture_state.h"
#include "config/abstract_variable/abstract_object.h"
#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::app::sdi_tap::v1 {

// The names of the alternatives of a format union.
inline constexpr char kAvailableInput[] = "AVAILABLE_SDI_INPUT";
inline constexpr char kUnavailableInput[] = "UNAVAILABLE_SDI_INPUT";

// An enum declaration over a fixed table of (code, name). `fromString` takes a name or a decimal
// code; an unknown name or code fails with "Invalid enum choice".
class NamedCodes : public config::abstract_variable::lib_abstract_variable::v2::IEnumDecl {
  public:
    struct Entry {
        std::int32_t code;
        std::string name;
    };
    explicit NamedCodes(std::vector<Entry> entries);

    const std::vector<std::int32_t>& values() const override { return m_values; }
    std::int32_t fromString(const std::string& text) const override;
    std::string toString(std::int32_t value) const override;

  private:
    std::vector<Entry> m_entries;
    std::vector<std::int32_t> m_values;
};

// The format codes as the tree names them: the 22 formats and NO_FORMAT for -1 (no engine, no
// signal).
std::shared_ptr<const NamedCodes> videoStandardNames();
// The audio sampling codes as the tree names them: 0 is the empty name (no engine).
std::shared_ptr<const NamedCodes> audioPairSamplingNames();

// The factory of the tree's root. `engine` may be null (pattern run) and must outlive every view;
// `boardInfo` is copied.
config::abstract_variable::lib_abstract_variable::v2::ObjectFactory buildServiceTree(
    const CaptureState* engine, bool fourHdQuads, const system::sdi::deltacast_io::v1::BoardInfo& boardInfo);

}  // namespace ovtx::app::sdi_tap::v1
