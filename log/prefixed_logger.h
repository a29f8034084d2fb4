// A logger that puts a fixed prefix in front of every message and passes it on.
//
//   PrefixedLogger webLogger(&logger, "Web service /sdi_tap/0: ");
//   webLogger.Log(1, "bad request %d", code);   // logs "Web service /sdi_tap/0: bad request 400"
#pragma once

#include <string>

#include "log/i_logger.h"

namespace ovtx::log::prefixed_logger::v0 {

class PrefixedLogger : public i_logger::v0::ILogger {
  public:
    // `target` must outlive this logger.
    PrefixedLogger(i_logger::v0::ILogger* target, std::string prefix);

    // Formats the whole text (no length limit here) and logs prefix and text to the target at the
    // same level.
    void Log(int level, const char* format, ...) override __attribute__((format(printf, 3, 4)));

  private:
    i_logger::v0::ILogger* m_target;
    std::string m_prefix;
};

}  // namespace ovtx::log::prefixed_logger::v0
