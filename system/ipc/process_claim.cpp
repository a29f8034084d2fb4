#include "system/ipc/process_claim.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include "system/ipc/posix_call.h"

namespace ovtx::system::ipc::v2 {

namespace {

using internal::posixCall;
using internal::SysError;

constexpr std::size_t kMaxNameBytes = 100;
// Every claim of this system stands under this prefix, so that no other program's names clash.
constexpr char kNamePrefix[] = "ovtx.claim.";

// The abstract address of `name`: a leading NUL, then the prefix and the name, unterminated.
socklen_t abstractAddress(const std::string& name, sockaddr_un& address) {
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    const std::size_t prefixBytes = sizeof(kNamePrefix) - 1;
    std::memcpy(address.sun_path + 1, kNamePrefix, prefixBytes);
    std::memcpy(address.sun_path + 1 + prefixBytes, name.data(), name.size());
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + prefixBytes + name.size());
}

class Socket {
  public:
    explicit Socket(int flags) : m_fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0)) {}
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    int fd() const { return m_fd; }
    int release() { return std::exchange(m_fd, -1); }

  private:
    int m_fd;
};

}  // namespace

ProcessClaim::ProcessClaim(ProcessClaim&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_error(other.m_error) {}

ProcessClaim& ProcessClaim::operator=(ProcessClaim&& other) noexcept {
    if (this != &other) {
        release();
        m_fd = std::exchange(other.m_fd, -1);
        m_error = other.m_error;
    }
    return *this;
}

ProcessClaim::~ProcessClaim() {
    release();
}

void ProcessClaim::release() {
    if (m_fd >= 0) {
        ::close(std::exchange(m_fd, -1));
    }
}

ProcessClaim ProcessClaim::take(const std::string& name) {
    ProcessClaim claim;
    if (name.empty() || name.size() > kMaxNameBytes) {
        claim.m_error = ENAMETOOLONG;
        return claim;
    }
    Socket socket(0);
    if (socket.fd() < 0) {
        claim.m_error = errno;
        return claim;
    }
    sockaddr_un address;
    const socklen_t length = abstractAddress(name, address);
    SysError error;
    posixCall(error, "bind",
              [&] { return ::bind(socket.fd(), reinterpret_cast<sockaddr*>(&address), length); });
    // Listening lets `holder` connect and learn the holder's process id.
    posixCall(error, "listen", [&] { return ::listen(socket.fd(), SOMAXCONN); });
    if (error) {
        claim.m_error = error.code;
        return claim;
    }
    claim.m_fd = socket.release();
    return claim;
}

std::optional<int> ProcessClaim::holder(const std::string& name) {
    if (name.empty() || name.size() > kMaxNameBytes) {
        return std::nullopt;
    }
    Socket socket(SOCK_NONBLOCK);
    sockaddr_un address;
    const socklen_t length = abstractAddress(name, address);
    if (socket.fd() < 0 || ::connect(socket.fd(), reinterpret_cast<sockaddr*>(&address), length) != 0) {
        return std::nullopt;
    }
    // The peer of an unaccepted connection is the listener as it was when it started listening.
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (::getsockopt(socket.fd(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 ||
        credentials.pid <= 0) {
        return std::nullopt;
    }
    return credentials.pid;
}

}  // namespace ovtx::system::ipc::v2
