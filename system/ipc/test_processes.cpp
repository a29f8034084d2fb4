#include "system/ipc/test_processes.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

extern char** environ;

namespace ovtx::system::ipc::v2::testing {
namespace {

using namespace std::chrono_literals;

// The helper sits in SDI_TAP_BIN_DIR under ctest, and beside the running program otherwise.
std::string helperPath() {
    const char* directory = std::getenv("SDI_TAP_BIN_DIR");
    if (directory != nullptr) {
        return std::string(directory) + "/ipc_test_helper";
    }
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "ipc_test_helper").string();
}

}  // namespace

void sleepFor(std::chrono::milliseconds duration) {
    std::this_thread::sleep_for(duration);
}

HelperProcess::HelperProcess(const std::vector<std::string>& arguments) {
    int toChild[2];
    int fromChild[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
    const std::string path = helperPath();
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const int spawned = ::posix_spawn(&m_pid, path.c_str(), &actions, nullptr, argv.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(toChild[0]);
    ::close(fromChild[1]);
    m_input = toChild[1];
    m_output = fromChild[0];
    if (spawned != 0) {
        m_pid = -1;
        throw std::runtime_error("posix_spawn of " + path + " failed");
    }
}

HelperProcess::~HelperProcess() {
    // End of input lets the helper close its objects and exit; one that does not is killed.
    ::close(std::exchange(m_input, -1));
    if (m_pid > 0 && !eventually([&] { return ::waitpid(m_pid, nullptr, WNOHANG) == m_pid; }, 5s)) {
        kill();
        wait();
    }
    ::close(m_output);
}

void HelperProcess::send(const std::string& line) {
    const std::string text = line + "\n";
    if (::write(m_input, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("write to the helper failed");
    }
}

std::optional<std::string> HelperProcess::readLine(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (const auto end = m_buffered.find('\n'); end != std::string::npos) {
            std::string line = m_buffered.substr(0, end);
            m_buffered.erase(0, end + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd output{m_output, POLLIN, 0};
        if (::poll(&output, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0))) <= 0) {
            return std::nullopt;
        }
        char chunk[256];
        const ssize_t count = ::read(m_output, chunk, sizeof chunk);
        if (count <= 0) {
            return std::nullopt;
        }
        m_buffered.append(chunk, static_cast<std::size_t>(count));
    }
}

std::string HelperProcess::ask(const std::string& line) {
    send(line);
    return readLine().value_or("<no answer>");
}

void HelperProcess::kill() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
    }
}

int HelperProcess::wait() {
    if (m_pid <= 0) {
        return -1;
    }
    int status = 0;
    while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool HelperProcess::sleepsOnSharedFutex() const {
    // "<syscall number> <first argument> <second argument> ...", the second being the futex op.
    std::ifstream file("/proc/" + std::to_string(m_pid) + "/syscall");
    long number = -1;
    unsigned long address = 0;
    unsigned long operation = 0;
    file >> number >> std::hex >> address >> operation;
    const unsigned long command = operation & FUTEX_CMD_MASK;
    const bool shared = (operation & FUTEX_PRIVATE_FLAG) == 0;
    return file && number == SYS_futex && shared && (command == FUTEX_WAIT_BITSET || command == FUTEX_WAIT);
}

void removeShmEntries(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        std::filesystem::remove("/dev/shm/" + name);
    }
}

std::vector<std::string> shmEntries(const std::string& prefix) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(prefix, 0) == 0) {
            names.push_back(name);
        }
    }
    return names;
}

bool shmEntryExists(const std::string& name) {
    return std::filesystem::exists("/dev/shm/" + name);
}

}  // namespace ovtx::system::ipc::v2::testing
