// Process-wide behaviour: fault handling, console stop signals and scheduling priority.
//
//   installFaultHandling();                       // first act of main
//   setConsoleControlHandler(&onConsoleStop);      // SIGINT, SIGTERM, SIGHUP, SIGQUIT
//   raiseToRealtimePriority();                     // best effort, silent on refusal
//
// Fault policy: a fault never tries to continue and never runs clean-up. A fatal signal (SIGSEGV,
// SIGBUS, SIGILL, SIGFPE, SIGABRT) ends the process with its default action, so a supervisor sees
// which fault it was. `std::terminate`, a pure virtual call and an allocation failure end the
// process at once through `_exit` with the codes below.
#pragma once

namespace ovtx::system::process::v1 {

inline constexpr int kExitTerminate = 3;        // std::terminate (an exception nobody caught, ...)
inline constexpr int kExitPureVirtualCall = 4;  // a pure virtual function was called
inline constexpr int kExitOutOfMemory = 5;      // operator new could not allocate

void installFaultHandling();

// The handler runs in signal context: it may only do async-signal-safe work (atomic stores,
// setting a named event). SIGPIPE is ignored from here on. Returns false when the handler could
// not be installed.
using ConsoleControlHandler = void (*)();
bool setConsoleControlHandler(ConsoleControlHandler handler);

// Raises every thread of the process to the highest scheduling priority the system grants.
void raiseToRealtimePriority();

}  // namespace ovtx::system::process::v1
