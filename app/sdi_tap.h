// The capture engine of a run with a board.
//
// The engine owns the run's named stop event (manual reset, not signalled), which any local
// process, and the console control handler, may set to end the capture loop:
//
//   SdiTap engine("2");
//   captureEngine.store(&engine);   // from here a console stop reaches it
//   ... engine.stopRequested() is polled by the loop with a timeout of 0 ...
//
// The slot loop itself needs the board's SDK; a build without it never reports a board, and the
// program flow takes the pattern path.
#pragma once

#include <string>

#include "system/ipc/named_objects.h"

namespace ovtx::app::sdi_tap::v1 {

class SdiTap {
  public:
    // Creates or joins the stop event of the run named `portName`; throws std::runtime_error when
    // it can't be had.
    explicit SdiTap(const std::string& portName);

    // Sets the stop event. Async-signal-safe: the console control handler calls it.
    void requestStop() noexcept;
    // Polls the stop event with a timeout of 0.
    bool stopRequested();

  private:
    system::ipc::v2::NamedEvent m_stopEvent;
};

}  // namespace ovtx::app::sdi_tap::v1
