// Standard error that never holds up the thread that writes to it.
//
// A daemon's standard error may be a terminal, a file, a pipe that a supervisor reads or the
// socket of the system journal. When the reader falls behind (a stopped pipe reader, a terminal
// held by XOFF), an ordinary write waits until it catches up, and with it the capture. Here a
// write takes what the stream accepts at once and drops the rest. After a loss, the next write
// that goes through first says how much was lost: "Console output dropped: <n> bytes".
//
// How each kind of stream is written without waiting:
// - pipes and terminals: through a second, non-blocking open of the same pipe or terminal, so
//   that the flags of the descriptor shared with the parent shell stay untouched;
// - sockets (the journal): send() with MSG_DONTWAIT;
// - regular files: plain writes, which never wait for a reader.
//
//   NonBlockingStandardError console;    // from here on, std::cerr and std::clog never block
//   std::cerr << "Resolution: " << width << "x" << height << std::endl;
//   standardErrorWriter().write("one line\n");
#pragma once

#include <cstdint>
#include <mutex>
#include <streambuf>
#include <string>
#include <string_view>

namespace ovtx::system::console::v1 {

// Writes to one descriptor without ever waiting. Safe from any thread.
class NonBlockingWriter {
  public:
    // Does not take `fd` over; it must outlive the writer.
    explicit NonBlockingWriter(int fd);
    ~NonBlockingWriter();
    NonBlockingWriter(const NonBlockingWriter&) = delete;
    NonBlockingWriter& operator=(const NonBlockingWriter&) = delete;

    // Writes what the stream takes at once; true when all of `text` went out.
    bool write(std::string_view text);

    // Bytes lost since the writer was made.
    std::uint64_t droppedBytes() const;

  private:
    enum class Kind { Plain, Reopened, Socket, Polled };

    std::size_t writeSome(const char* data, std::size_t size);
    std::size_t writeOnce(const char* data, std::size_t size);
    bool reportLoss();

    mutable std::mutex m_mutex;
    int m_fd;
    int m_ownFd = -1;
    Kind m_kind = Kind::Polled;
    std::uint64_t m_droppedBytes = 0;
    std::uint64_t m_unreportedBytes = 0;
    bool m_atLineStart = true;
};

// The process's standard error (descriptor 2).
NonBlockingWriter& standardErrorWriter();

// A stream buffer that hands whole lines to a NonBlockingWriter: text is passed on at each line
// end, at each flush, and when more than kLongestLine bytes wait without a line end. Flushing
// never fails, so a loss never puts the stream into a failed state.
class LineWriterBuffer : public std::streambuf {
  public:
    static constexpr std::size_t kLongestLine = 4096;

    explicit LineWriterBuffer(NonBlockingWriter& writer) : m_writer(writer) {}
    ~LineWriterBuffer() override;

  protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* data, std::streamsize size) override;
    int sync() override;

  private:
    void passCompleteLines();

    std::mutex m_mutex;
    NonBlockingWriter& m_writer;
    std::string m_pending;
};

// While it lives, std::cerr and std::clog write through standardErrorWriter(), line by line; text
// without a line end waits for the next line end or flush. The destructor passes on what waits and
// puts the streams back as they were.
class NonBlockingStandardError {
  public:
    NonBlockingStandardError();
    ~NonBlockingStandardError();
    NonBlockingStandardError(const NonBlockingStandardError&) = delete;
    NonBlockingStandardError& operator=(const NonBlockingStandardError&) = delete;

  private:
    LineWriterBuffer m_buffer;
    std::streambuf* m_previousError;
    std::streambuf* m_previousLog;
    bool m_errorWasUnitBuffered;
};

}  // namespace ovtx::system::console::v1
