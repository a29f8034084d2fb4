// Stop requests from the terminal or the service manager: SIGINT and SIGTERM.
//
// `installStopSignals` routes both signals to one process-wide stop flag, and optionally to a
// handler of the caller's that runs inside the signal (so it may only do async-signal-safe work,
// such as setting a named event or storing to an atomic):
//
//   installStopSignals();
//   while (!stopRequested()) { ...one unit of work with a short timeout... }
//
// Only the first installation's handler is kept; a later call replaces it.
#pragma once

namespace ovtx::system::signals::v1 {

// Called from the signal with the signal's number; must be async-signal-safe.
using StopHandler = void (*)(int signalNumber);

// Installs the stop handling for SIGINT and SIGTERM. False when the system refuses.
bool installStopSignals(StopHandler handler = nullptr);

// True once SIGINT or SIGTERM has arrived (or requestStop was called) since the last clear.
bool stopRequested();

// Sets the flag as a signal would, without calling the handler: for a stop that comes from
// elsewhere (a count reached, a timer).
void requestStop();

// Clears the flag.
void clearStopRequest();

}  // namespace ovtx::system::signals::v1
