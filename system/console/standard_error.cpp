#include "system/console/standard_error.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>

namespace ovtx::system::console::v1 {

namespace {

bool sameFile(int first, int second) {
    struct stat a {};
    struct stat b {};
    return ::fstat(first, &a) == 0 && ::fstat(second, &b) == 0 && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino;
}

// A second, non-blocking open of what `fd` refers to; -1 where the system offers none.
int reopenNonBlocking(int fd) {
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    const int reopened = ::open(self.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (reopened >= 0 && !sameFile(fd, reopened)) {
        ::close(reopened);
        return -1;
    }
    return reopened;
}

}  // namespace

NonBlockingWriter::NonBlockingWriter(int fd) : m_fd(fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        return;  // polled: a closed descriptor never reports room, so everything is dropped
    }
    if (S_ISSOCK(status.st_mode)) {
        m_kind = Kind::Socket;
    } else if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) {
        m_ownFd = reopenNonBlocking(fd);
        m_kind = m_ownFd >= 0 ? Kind::Reopened : Kind::Polled;
    } else {
        m_kind = Kind::Plain;
    }
}

NonBlockingWriter::~NonBlockingWriter() {
    if (m_ownFd >= 0) {
        ::close(m_ownFd);
    }
}

std::uint64_t NonBlockingWriter::droppedBytes() const {
    std::lock_guard lock(m_mutex);
    return m_droppedBytes;
}

bool NonBlockingWriter::write(std::string_view text) {
    std::lock_guard lock(m_mutex);
    if (text.empty()) {
        return true;
    }
    if (m_unreportedBytes > 0 && !reportLoss()) {
        m_droppedBytes += text.size();
        m_unreportedBytes += text.size();
        return false;
    }
    const std::size_t written = writeSome(text.data(), text.size());
    if (written > 0) {
        m_atLineStart = text[written - 1] == '\n';
    }
    const std::size_t lost = text.size() - written;
    m_droppedBytes += lost;
    m_unreportedBytes += lost;
    return lost == 0;
}

// Says how much was lost, on a line of its own; false when that does not fit either.
bool NonBlockingWriter::reportLoss() {
    std::string notice = m_atLineStart ? "" : "\n";
    notice += "Console output dropped: " + std::to_string(m_unreportedBytes) + " bytes\n";
    const std::size_t written = writeSome(notice.data(), notice.size());
    if (written > 0) {
        m_atLineStart = notice[written - 1] == '\n';
    }
    if (written < notice.size()) {
        return false;
    }
    m_unreportedBytes = 0;
    return true;
}

std::size_t NonBlockingWriter::writeSome(const char* data, std::size_t size) {
    std::size_t written = 0;
    while (written < size) {
        const std::size_t n = writeOnce(data + written, size - written);
        if (n == 0) {
            break;
        }
        written += n;
    }
    return written;
}

// One write that does not wait: the bytes taken, 0 when the stream has no room or failed.
std::size_t NonBlockingWriter::writeOnce(const char* data, std::size_t size) {
    while (true) {
        ssize_t n = -1;
        switch (m_kind) {
            case Kind::Plain:
                n = ::write(m_fd, data, size);
                break;
            case Kind::Reopened:
                n = ::write(m_ownFd, data, size);
                break;
            case Kind::Socket:
                n = ::send(m_fd, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
                break;
            case Kind::Polled: {
                // A pipe that reports room takes PIPE_BUF bytes without waiting.
                pollfd descriptor{m_fd, POLLOUT, 0};
                if (::poll(&descriptor, 1, 0) != 1 || (descriptor.revents & POLLOUT) == 0) {
                    return 0;
                }
                n = ::write(m_fd, data, std::min<std::size_t>(size, PIPE_BUF));
                break;
            }
        }
        if (n >= 0) {
            return static_cast<std::size_t>(n);
        }
        if (errno != EINTR) {
            return 0;
        }
    }
}

NonBlockingWriter& standardErrorWriter() {
    static NonBlockingWriter writer(STDERR_FILENO);
    return writer;
}

LineWriterBuffer::~LineWriterBuffer() {
    sync();
}

LineWriterBuffer::int_type LineWriterBuffer::overflow(int_type c) {
    if (traits_type::eq_int_type(c, traits_type::eof())) {
        return traits_type::not_eof(c);
    }
    const char character = traits_type::to_char_type(c);
    xsputn(&character, 1);
    return c;
}

std::streamsize LineWriterBuffer::xsputn(const char* data, std::streamsize size) {
    std::lock_guard lock(m_mutex);
    m_pending.append(data, static_cast<std::size_t>(size));
    passCompleteLines();
    return size;
}

int LineWriterBuffer::sync() {
    std::lock_guard lock(m_mutex);
    m_writer.write(m_pending);
    m_pending.clear();
    return 0;  // a loss is not a stream failure: later lines must still go out
}

void LineWriterBuffer::passCompleteLines() {
    const std::size_t lastLineEnd = m_pending.rfind('\n');
    if (lastLineEnd != std::string::npos) {
        m_writer.write(std::string_view(m_pending).substr(0, lastLineEnd + 1));
        m_pending.erase(0, lastLineEnd + 1);
    }
    if (m_pending.size() > kLongestLine) {
        m_writer.write(m_pending);
        m_pending.clear();
    }
}

NonBlockingStandardError::NonBlockingStandardError()
    : m_buffer(standardErrorWriter()),
      m_previousError(std::cerr.rdbuf(&m_buffer)),
      m_previousLog(std::clog.rdbuf(&m_buffer)),
      m_errorWasUnitBuffered((std::cerr.flags() & std::ios::unitbuf) != 0) {
    std::cerr.unsetf(std::ios::unitbuf);
}

NonBlockingStandardError::~NonBlockingStandardError() {
    std::cerr.flush();
    std::clog.flush();
    std::cerr.rdbuf(m_previousError);
    std::clog.rdbuf(m_previousLog);
    if (m_errorWasUnitBuffered) {
        std::cerr.setf(std::ios::unitbuf);
    }
}

}  // namespace ovtx::system::console::v1
