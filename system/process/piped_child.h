// Starting and driving another program of this system as a separate process: for tests that need
// real processes, and for tools that run one another.
//
// The child's standard input and output are pipes to the parent, its standard error is the
// parent's. A line protocol over them keeps a test and its helper in step:
//
//   auto child = PipedChild::spawn(binDir + "/simulcast_test_helper", {"writer", name});
//   child.writeLine("open 32 1024");
//   EXPECT_EQ(child.readLine(10s), "ok");
//   child.kill(PipedChild::Signal::Kill);
//   auto status = child.wait(10s);   // status->signal == 9
//
// A child still running when its object goes is killed and reaped, so a failing test leaves no
// stray process behind.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ovtx::system::process::v1 {

// How a child ended.
struct ExitStatus {
    bool exited = false;  // ended by itself; `code` holds its exit code
    int code = 0;
    int signal = 0;  // the signal that ended it, when not `exited`
};

class PipedChild {
  public:
    enum class Signal { Interrupt, Terminate, Kill };

    // Starts `path` with `args` (argv[1] on). The parent ignores SIGPIPE from then on, so that
    // writing to a child that has ended fails instead of ending the parent. Invalid (error() set) when it
    // can't be started; a program that can't be executed ends the child with exit code 127.
    static PipedChild spawn(const std::string& path, const std::vector<std::string>& args);

    PipedChild() = default;
    PipedChild(PipedChild&& other) noexcept;
    PipedChild& operator=(PipedChild&& other) noexcept;
    PipedChild(const PipedChild&) = delete;
    PipedChild& operator=(const PipedChild&) = delete;
    ~PipedChild();

    bool valid() const { return m_pid > 0; }
    int error() const { return m_error; }
    int pid() const { return m_pid; }

    // Writes `line` and a newline to the child's standard input.
    bool writeLine(std::string_view line);
    // Closes the child's standard input (it reads end of file).
    void closeInput();
    // The next line of the child's standard output, without its newline; nothing at end of file
    // or when no full line arrives within `timeout`.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout);

    bool kill(Signal signal);
    // Reaps the child; nothing when it is still running after `timeout`.
    std::optional<ExitStatus> wait(std::chrono::milliseconds timeout);

  private:
    void reset();

    int m_pid = -1;
    int m_error = 0;
    int m_stdin = -1;
    int m_stdout = -1;
    std::string m_pending;  // output read past the last line handed out
};

// The id of this process, for names that must be unique to it.
int currentProcessId();

}  // namespace ovtx::system::process::v1
