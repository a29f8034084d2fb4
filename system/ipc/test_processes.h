// Test support: the helper process of the ipc tests, and the /dev/shm names of a test.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace ovtx::system::ipc::v2::testing {

// A running `ipc_test_helper`, talked to through its stdin and stdout. The destructor closes its
// input, which makes it close its objects and exit, and kills and reaps it if it does not, so that
// a failing test leaves no process behind.
class HelperProcess {
  public:
    explicit HelperProcess(const std::vector<std::string>& arguments = {});
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;
    ~HelperProcess();

    pid_t pid() const { return m_pid; }

    // Sends one command line.
    void send(const std::string& line);
    // The next line of output, or nothing when none came within `timeout` (or the pipe closed).
    std::optional<std::string> readLine(std::chrono::milliseconds timeout = std::chrono::seconds(30));
    // `send` then `readLine`.
    std::string ask(const std::string& line);

    void kill();
    // Waits for the exit and returns the exit status, or -1 when it was killed by a signal.
    int wait();
    // Whether the process sleeps on a shared futex (an event wait or a mutex wait), as the
    // kernel reports its current system call.
    bool sleepsOnSharedFutex() const;

  private:
    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    std::string m_buffered;
};

void sleepFor(std::chrono::milliseconds duration);

// Polls `condition` until it holds or `timeout` passes; returns its last value.
template <typename Condition>
bool eventually(Condition&& condition, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        sleepFor(std::chrono::milliseconds(5));
    }
    return true;
}

// The entries of /dev/shm whose names start with `prefix`.
std::vector<std::string> shmEntries(const std::string& prefix);

// Removes what a failed test left behind, so that one failure does not cascade.
void removeShmEntries(const std::vector<std::string>& names);

bool shmEntryExists(const std::string& name);

}  // namespace ovtx::system::ipc::v2::testing
