// The capture engine's own logging call: every message of the engine and of its extraction steps
// goes through one `EngineReport`, which is either forced (always written) or verbose (written only
// when the run was started with -print).
//
//   EngineReport report(logger, parameters.print);
//   report(true, "SdiTap [%s]", portName.c_str());   // forced
//   report(false, "Timeout set.");                    // verbose: only with -print
//
// Texts are cut at 259 characters and written to the logger at level 2.
#pragma once

#include "log/i_logger.h"

namespace ovtx::app::sdi_tap::v1 {

class EngineReport {
  public:
    EngineReport(log::i_logger::v0::ILogger& logger, bool print) : m_logger(logger), m_print(print) {}

    // `this` is argument 1, so the format is argument 3.
    void operator()(bool forced, const char* format, ...) __attribute__((format(printf, 3, 4)));

    bool verbose() const { return m_print; }
    log::i_logger::v0::ILogger& logger() { return m_logger; }

  private:
    log::i_logger::v0::ILogger& m_logger;
    bool m_print;
};

}  // namespace ovtx::app::sdi_tap::v1
