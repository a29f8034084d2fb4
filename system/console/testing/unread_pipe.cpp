#include "system/console/testing/unread_pipe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

namespace ovtx::system::console::v1::testing {

UnreadPipe::UnreadPipe(std::filesystem::path path, int capacity) : m_path(std::move(path)) {
    if (::mkfifo(m_path.c_str(), 0600) != 0) {
        throw std::runtime_error("cannot create the pipe " + m_path.string());
    }
    // Opened for reading first, so that opening the write end does not wait for a reader.
    m_readEnd = ::open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    m_writeEnd = ::open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
    if (m_readEnd < 0 || m_writeEnd < 0 || (capacity > 0 && ::fcntl(m_readEnd, F_SETPIPE_SZ, capacity) < 0)) {
        throw std::runtime_error("cannot open the pipe " + m_path.string());
    }
}

UnreadPipe::~UnreadPipe() {
    ::close(m_writeEnd);
    ::close(m_readEnd);
    ::unlink(m_path.c_str());
}

void UnreadPipe::fill() {
    const int flags = ::fcntl(m_writeEnd, F_GETFL);
    ::fcntl(m_writeEnd, F_SETFL, flags | O_NONBLOCK);
    const std::string block(4096, 'f');
    for (std::size_t size = block.size(); size > 0; size /= 2) {
        while (::write(m_writeEnd, block.data(), size) > 0) {
        }
    }
    ::fcntl(m_writeEnd, F_SETFL, flags);
}

std::string UnreadPipe::drain() {
    std::string content;
    char buffer[4096];
    for (ssize_t n = 0; (n = ::read(m_readEnd, buffer, sizeof buffer)) > 0;) {
        content.append(buffer, static_cast<std::size_t>(n));
    }
    return content;
}

}  // namespace ovtx::system::console::v1::testing
