// The logging interface that every subsystem holds.
//
// `Log` formats on the caller's thread and never waits for a disk or a console; levels run from
// 0 (the most severe) to 3.
//
//   void report(ILogger& logger) { logger.Log(2, "API v%s  Board(s) %d", version, count); }
#pragma once

namespace ovtx::log::i_logger::v0 {

struct ILogger {
    // printf-style; `this` is argument 1, so the format is argument 3.
    virtual void Log(int level, const char* format, ...) __attribute__((format(printf, 3, 4))) = 0;
    virtual ~ILogger() = default;
};

}  // namespace ovtx::log::i_logger::v0
