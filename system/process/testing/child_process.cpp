#include "system/process/testing/child_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace ovtx::system::process::testing {
namespace {

std::string temporaryPath(const char* kind) {
    static int counter = 0;
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir != nullptr ? dir : "/tmp") + "/sdi_tap_child_" + std::to_string(::getpid()) + "_" +
           std::to_string(++counter) + "." + kind;
}

[[noreturn]] void execChild(const std::string& path, const std::vector<std::string>& arguments,
                            const std::map<std::string, std::string>& environment, const std::string& outPath,
                            const std::string& errPath) {
    const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(err, STDERR_FILENO);
    const int devNull = ::open("/dev/null", O_RDONLY);
    ::dup2(devNull, STDIN_FILENO);
    for (const auto& [name, value] : environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(path.c_str()));
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    ::execv(path.c_str(), argv.data());
    ::_exit(127);
}

}  // namespace

ChildProcess::ChildProcess(const std::string& path, const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& environment)
    : m_outPath(temporaryPath("out")), m_errPath(temporaryPath("err")) {
    m_pid = ::fork();
    if (m_pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (m_pid == 0) {
        execChild(path, arguments, environment, m_outPath, m_errPath);
    }
}

ChildProcess::~ChildProcess() {
    if (!m_status) {
        ::kill(m_pid, SIGKILL);
        int status = 0;
        ::waitpid(m_pid, &status, 0);
    }
    ::unlink(m_outPath.c_str());
    ::unlink(m_errPath.c_str());
}

void ChildProcess::signal(int signalNumber) const {
    if (!m_status) {
        ::kill(m_pid, signalNumber);
    }
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!m_status) {
        int status = 0;
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_status = status;
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return m_status;
}

std::optional<int> ChildProcess::waitExitCode(std::chrono::milliseconds timeout) {
    const std::optional<int> status = wait(timeout);
    if (!status) {
        return std::nullopt;
    }
    return WIFEXITED(*status) ? WEXITSTATUS(*status) : -1000 - WTERMSIG(*status);
}

bool ChildProcess::waitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (standardError().find(text) != std::string::npos ||
            standardOutput().find(text) != std::string::npos) {
            return true;
        }
        if (wait(std::chrono::milliseconds(0))) {
            return standardError().find(text) != std::string::npos ||
                   standardOutput().find(text) != std::string::npos;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

std::string ChildProcess::standardOutput() const {
    return readFileBytes(m_outPath);
}
std::string ChildProcess::standardError() const {
    return readFileBytes(m_errPath);
}

}  // namespace ovtx::system::process::testing
