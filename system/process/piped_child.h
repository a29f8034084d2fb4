// Starting and driving another program of this system as a separate process: for tests that need
// real processes, and for tools that run one another.
//
// The child's standard input and output are pipes to the parent; its standard error is the
// parent's, or collected for the parent to read. A line protocol over the pipes keeps a test and
// its helper in step:
//
//   auto child = PipedChild::spawn(binDir + "/simulcast_test_helper", {"writer", name});
//   EXPECT_EQ(child.ask("open 32 1024"), "ok");
//   child.kill(PipedChild::Signal::Kill);
//   auto status = child.wait(10s);   // status->signal == 9
//
//   SpawnOptions options;
//   options.environment = {{"SDI_TAP_REGISTRY", dir}};
//   options.captureStandardError = true;
//   auto daemon = PipedChild::spawn(binDir + "/sdi_tap", {...}, options);
//   daemon.waitForStandardError("switched to pattern mode", 20s);
//
// A child still running when its object goes is killed and reaped (after `graceOnClose`, if
// given), so a failing test leaves no stray process behind.
#pragma once

#include <chrono>
#include <map>
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

    static ExitStatus exitedWith(int code) { return {true, code, 0}; }
    static ExitStatus killedBy(int signal) { return {false, 0, signal}; }
    bool operator==(const ExitStatus&) const = default;
};

struct SpawnOptions {
    // Set in the child on top of the parent's environment.
    std::map<std::string, std::string> environment;
    // Collects the child's standard error for standardError() instead of sharing the parent's.
    bool captureStandardError = false;
    // On destruction, the child's input is closed and it gets this long to end by itself before
    // it is killed: helpers that close their named objects at end of input leave nothing behind.
    std::chrono::milliseconds graceOnClose{0};
};

class PipedChild {
  public:
    // Stop and Continue pause and resume the child, as a debugger or job control would.
    enum class Signal { Interrupt, Terminate, Hangup, Quit, Kill, Stop, Continue };

    // Starts `path` with `args` (argv[1] on). The parent ignores SIGPIPE from then on, so that
    // writing to a child that has ended fails instead of ending the parent. Invalid (error() set) when it
    // can't be started; a program that can't be executed ends the child with exit code 127.
    static PipedChild spawn(const std::string& path, const std::vector<std::string>& args,
                            const SpawnOptions& options = {});

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
    std::optional<std::string> readLine(std::chrono::milliseconds timeout = std::chrono::seconds(30));
    // writeLine, then readLine; "<no answer>" when none comes.
    std::string ask(std::string_view line, std::chrono::milliseconds timeout = std::chrono::seconds(30));

    // What the child wrote to its standard error so far (with captureStandardError).
    std::string standardError() const;
    // True once `text` shows on the captured standard error; false after `timeout`, or when the
    // child ended without writing it.
    bool waitForStandardError(std::string_view text, std::chrono::milliseconds timeout);

    // False once the child has ended (it is still to be reaped by wait()).
    bool running() const;
    bool kill(Signal signal);
    // Reaps the child; nothing when it is still running after `timeout`.
    std::optional<ExitStatus> wait(std::chrono::milliseconds timeout = std::chrono::seconds(30));

  private:
    void reset();

    int m_pid = -1;
    int m_error = 0;
    int m_stdin = -1;
    int m_stdout = -1;
    int m_stderr = -1;  // the captured standard error, an unnamed file
    std::chrono::milliseconds m_graceOnClose{0};
    std::string m_pending;  // output read past the last line handed out
};

// The id of this process, for names that must be unique to it.
int currentProcessId();

}  // namespace ovtx::system::process::v1
