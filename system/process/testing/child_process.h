// A child process for end-to-end tests: started from a binary with arguments and extra environment,
// its standard output and error collected in files, always killed and reaped on destruction.
//
//   ChildProcess daemon(binaryPath("sdi_tap"), {"-sdiport", "0", "-videoformat", "3"},
//                       {{"SDI_TAP_REGISTRY", registry}});
//   daemon.waitForOutput("switched to pattern mode", std::chrono::seconds(20));
//   daemon.signal(SIGINT);
//   std::optional<int> status = daemon.wait(std::chrono::seconds(20));
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "system/process/testing/test_files.h"

namespace ovtx::system::process::testing {

class ChildProcess {
  public:
    ChildProcess(const std::string& path, const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& environment = {});
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    pid_t pid() const { return m_pid; }
    void signal(int signalNumber) const;

    // The raw wait status once the child has ended, or nothing after `timeout` (the child lives on).
    std::optional<int> wait(std::chrono::milliseconds timeout);
    // The exit code, or -1000 - signal number for a child ended by a signal, or nothing on timeout.
    std::optional<int> waitExitCode(std::chrono::milliseconds timeout);

    // True once `text` appears on standard error or output, false after `timeout` or if the child ended
    // first.
    bool waitForOutput(const std::string& text, std::chrono::milliseconds timeout);

    std::string standardOutput() const;
    std::string standardError() const;

  private:
    pid_t m_pid = -1;
    std::optional<int> m_status;
    std::string m_outPath;
    std::string m_errPath;
};

}  // namespace ovtx::system::process::testing
