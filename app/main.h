// The spine of the daemon: start-up order, the choice between the capture and the pattern path,
// how a stop reaches the running loop, tear-down order, and which failure ends with which words
// and exit code.
//
//   int main(int argc, char** argv) { return ovtx::app::sdi_tap::v1::processEntry(argc, argv); }
//
// Exit codes: 0 normal end (also a pattern run whose channel was declined before any object was
// touched), 1 bad command line, missing installation root, a port another run serves, a named
// object the system refused, or any exception, 100 device stream already used elsewhere.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "system/ipc/process_claim.h"

namespace ovtx::app::sdi_tap::v1 {

class SdiTap;

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitStreamAlreadyUsed = 100;

// Process-wide state, written by the main routine and the console control handler.
extern std::atomic<SdiTap*> captureEngine;
extern std::atomic<bool> keepRunning;

// Runs on a console stop (SIGINT, SIGTERM, SIGHUP, SIGQUIT): sets the engine's stop event if there
// is an engine, then clears keepRunning. Async-signal-safe.
void consoleControlHandler();

// The installation root from the registry's Pathname value; false when neither key can be read,
// or when the value is empty or a relative path.
bool findFirmwareRoot(std::string& root);
// The root in a Pathname value: everything ahead of the first "/App", or the whole value.
std::string firmwareRootFromPathname(const std::string& pathname);

// Every run claims its port under this name followed by portName (see ProcessClaim).
inline constexpr char kPortClaimPrefix[] = "sdi_tap.port.";

// Takes the claim of the port `portName` into `claim`, unless it holds it already. When another
// process holds it, writes "Port <port> is already served by sdi_tap process <pid>; ..." to the
// standard error stream and returns false; the other run is not touched.
bool claimPort(const std::string& portName, system::ipc::v2::ProcessClaim& claim);

// "4K" in four-quadrant mode, otherwise the port in decimal.
std::string composePortName(bool fourHdQuads, std::int32_t sdiPort);

// The main routine: everything from the command line to the tear-down, without the outermost guard.
int mainRoutine(const std::vector<std::string>& arguments);

// The process entry: fault handling first, then the main routine inside the outermost guard.
int processEntry(int argc, char** argv);

}  // namespace ovtx::app::sdi_tap::v1
