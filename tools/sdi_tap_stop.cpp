// sdi_tap_stop: asks the sdi_tap run on a port to stop, by setting the run's named stop event.
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>

#include "simulcast/capture_records.h"
#include "system/ipc/named_objects.h"

namespace {

constexpr const char* kUsage =
    R"(Usage: sdi_tap_stop <portName>

Stops the sdi_tap run on <portName> (the SDI port number, or 4K) by setting its stop event
(the manual-reset event 08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Stop_Event_<portName>).
The run finishes its current frame, closes its channels and exits.

Exit codes: 0 when the event was set, 1 on a bad command line or when no run of that name
exists.
)";

}  // namespace

int main(int argc, char** argv) {
    using namespace ovtx::simulcast::capture_records::v1;
    using ovtx::system::ipc::v2::NamedEvent;

    if (argc == 2 && (std::string_view(argv[1]) == "-h" || std::string_view(argv[1]) == "--help")) {
        std::cout << kUsage;
        return 0;
    }
    if (argc != 2 || argv[1][0] == '\0' || argv[1][0] == '-') {
        std::cerr << "sdi_tap_stop: give exactly one portName\n\n" << kUsage;
        return 1;
    }
    const std::string portName = argv[1];
    const std::string eventName = channelName(kStopEventPrefix, portName);
    NamedEvent stopEvent = NamedEvent::open(eventName);
    if (!stopEvent.valid()) {
        std::cerr << "sdi_tap_stop: no sdi_tap run on port " << portName << " (cannot open " << eventName
                  << ": " << std::strerror(stopEvent.error()) << ")\n";
        return 1;
    }
    if (!stopEvent.set()) {
        std::cerr << "sdi_tap_stop: cannot set " << eventName << ": " << std::strerror(stopEvent.error())
                  << "\n";
        return 1;
    }
    std::cout << "sdi_tap_stop: stop requested for the run on port " << portName << "\n";
    return 0;
}
