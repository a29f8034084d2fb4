#include "system/process/piped_child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <thread>
#include <utility>

namespace ovtx::system::process::v1 {

namespace {

void closeDescriptor(int& fd) {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

int toSignalNumber(PipedChild::Signal signal) {
    switch (signal) {
        case PipedChild::Signal::Interrupt:
            return SIGINT;
        case PipedChild::Signal::Terminate:
            return SIGTERM;
        case PipedChild::Signal::Hangup:
            return SIGHUP;
        case PipedChild::Signal::Quit:
            return SIGQUIT;
        case PipedChild::Signal::Stop:
            return SIGSTOP;
        case PipedChild::Signal::Continue:
            return SIGCONT;
        case PipedChild::Signal::Kill:
            break;
    }
    return SIGKILL;
}

std::chrono::steady_clock::time_point deadlineAfter(std::chrono::milliseconds timeout) {
    return std::chrono::steady_clock::now() + timeout;
}

}  // namespace

PipedChild PipedChild::spawn(const std::string& path, const std::vector<std::string>& args,
                             const SpawnOptions& options) {
    // A child that has ended must show as a failed write, not end the parent with SIGPIPE.
    ::signal(SIGPIPE, SIG_IGN);
    PipedChild child;
    child.m_graceOnClose = options.graceOnClose;
    int input[2] = {-1, -1};
    int output[2] = {-1, -1};
    if (options.captureStandardError) {
        child.m_stderr = ::memfd_create("sdi_tap_child_stderr", MFD_CLOEXEC);
    }
    if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0 ||
        (options.captureStandardError && child.m_stderr < 0)) {
        child.m_error = errno;
        for (int* fd : {&input[0], &input[1], &output[0], &output[1], &child.m_stderr}) {
            closeDescriptor(*fd);
        }
        return child;
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(path.c_str()));
    for (const std::string& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(input[0], STDIN_FILENO);
        ::dup2(output[1], STDOUT_FILENO);
        if (child.m_stderr >= 0) {
            ::dup2(child.m_stderr, STDERR_FILENO);
        }
        for (const auto& [name, value] : options.environment) {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
        ::execv(path.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(input[0]);
    ::close(output[1]);
    if (pid < 0) {
        child.m_error = errno;
        ::close(input[1]);
        ::close(output[0]);
        return child;
    }
    child.m_pid = pid;
    child.m_stdin = input[1];
    child.m_stdout = output[0];
    return child;
}

PipedChild::PipedChild(PipedChild&& other) noexcept {
    *this = std::move(other);
}

PipedChild& PipedChild::operator=(PipedChild&& other) noexcept {
    if (this != &other) {
        reset();
        m_pid = std::exchange(other.m_pid, -1);
        m_error = other.m_error;
        m_stdin = std::exchange(other.m_stdin, -1);
        m_stdout = std::exchange(other.m_stdout, -1);
        m_stderr = std::exchange(other.m_stderr, -1);
        m_graceOnClose = other.m_graceOnClose;
        m_pending = std::move(other.m_pending);
    }
    return *this;
}

PipedChild::~PipedChild() {
    reset();
}

void PipedChild::reset() {
    closeDescriptor(m_stdin);
    if (m_pid > 0 && m_graceOnClose.count() > 0) {
        wait(m_graceOnClose);
    }
    closeDescriptor(m_stdout);
    closeDescriptor(m_stderr);
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }
    m_pending.clear();
}

bool PipedChild::writeLine(std::string_view line) {
    std::string text(line);
    text.push_back('\n');
    std::size_t written = 0;
    while (m_stdin >= 0 && written < text.size()) {
        const ssize_t n = ::write(m_stdin, text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            m_error = errno;
            return false;
        }
        written += static_cast<std::size_t>(n);
    }
    return written == text.size();
}

void PipedChild::closeInput() {
    closeDescriptor(m_stdin);
}

std::optional<std::string> PipedChild::readLine(std::chrono::milliseconds timeout) {
    const auto deadline = deadlineAfter(timeout);
    while (true) {
        if (const auto newline = m_pending.find('\n'); newline != std::string::npos) {
            std::string line = m_pending.substr(0, newline);
            m_pending.erase(0, newline + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (m_stdout < 0 || left.count() < 0) {
            return std::nullopt;
        }
        pollfd descriptor{m_stdout, POLLIN, 0};
        const int ready = ::poll(&descriptor, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return std::nullopt;
        }
        char buffer[4096];
        const ssize_t n = ::read(m_stdout, buffer, sizeof buffer);
        if (n <= 0) {
            return std::nullopt;
        }
        m_pending.append(buffer, static_cast<std::size_t>(n));
    }
}

std::string PipedChild::ask(std::string_view line, std::chrono::milliseconds timeout) {
    if (!writeLine(line)) {
        return "<write failed>";
    }
    return readLine(timeout).value_or("<no answer>");
}

std::string PipedChild::standardError() const {
    std::string text;
    char buffer[4096];
    for (off_t offset = 0; m_stderr >= 0;) {
        const ssize_t n = ::pread(m_stderr, buffer, sizeof buffer, offset);
        if (n <= 0) {
            break;
        }
        text.append(buffer, static_cast<std::size_t>(n));
        offset += n;
    }
    return text;
}

bool PipedChild::running() const {
    siginfo_t info{};
    // WNOWAIT leaves an ended child to be reaped by wait().
    return m_pid > 0 && ::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

bool PipedChild::waitForStandardError(std::string_view text, std::chrono::milliseconds timeout) {
    const auto deadline = deadlineAfter(timeout);
    while (standardError().find(text) == std::string::npos) {
        if (!running() || std::chrono::steady_clock::now() >= deadline) {
            return standardError().find(text) != std::string::npos;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

bool PipedChild::kill(Signal signal) {
    return m_pid > 0 && ::kill(m_pid, toSignalNumber(signal)) == 0;
}

std::optional<ExitStatus> PipedChild::wait(std::chrono::milliseconds timeout) {
    const auto deadline = deadlineAfter(timeout);
    while (m_pid > 0) {
        int status = 0;
        const pid_t done = ::waitpid(m_pid, &status, WNOHANG);
        if (done == m_pid) {
            m_pid = -1;
            ExitStatus result;
            result.exited = WIFEXITED(status);
            result.code = result.exited ? WEXITSTATUS(status) : 0;
            result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
            return result;
        }
        if (done < 0 || std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return std::nullopt;
}

int currentProcessId() {
    return static_cast<int>(::getpid());
}

}  // namespace ovtx::system::process::v1
