#include "app/sdi_tap.h"

#include <cstring>
#include <stdexcept>

#include "simulcast/capture_records.h"

namespace ovtx::app::sdi_tap::v1 {

using system::ipc::v2::NamedEvent;
using system::ipc::v2::WaitResult;

SdiTap::SdiTap(const std::string& portName)
    : m_stopEvent(NamedEvent::createOrJoin(simulcast::capture_records::v1::channelName(
                                               simulcast::capture_records::v1::kStopEventPrefix, portName),
                                           NamedEvent::Reset::Manual, false)) {
    if (!m_stopEvent.valid()) {
        throw std::runtime_error("Can't create stop event " + m_stopEvent.name() + ": " +
                                 std::strerror(m_stopEvent.error()));
    }
}

void SdiTap::requestStop() noexcept {
    m_stopEvent.set();
}

bool SdiTap::stopRequested() {
    return m_stopEvent.wait(std::chrono::milliseconds(0)) == WaitResult::Acquired;
}

}  // namespace ovtx::app::sdi_tap::v1
