// A name that one process at a time may hold on this machine, released the moment its holder
// ends, however it ends (a kill -9 included), and leaving nothing behind in any file system.
//
// A run claims its port before it touches any public object, so that a second daemon started on
// the same port by mistake stops at once instead of corrupting the first one's channels:
//
//   ProcessClaim claim = ProcessClaim::take("sdi_tap.port.0");
//   if (!claim.held()) {
//       std::optional<int> pid = ProcessClaim::holder("sdi_tap.port.0");   // who has it
//   }
//
// The claim is a listening socket in Linux's abstract socket namespace: the kernel drops the name
// with the last descriptor of the socket, and it is not inherited across exec. The namespace is
// per network namespace, so processes in different network namespaces do not see each other's
// claims. Nothing here throws.
#pragma once

#include <optional>
#include <string>

namespace ovtx::system::ipc::v2 {

class ProcessClaim {
  public:
    ProcessClaim() = default;
    ProcessClaim(ProcessClaim&& other) noexcept;
    ProcessClaim& operator=(ProcessClaim&& other) noexcept;
    ProcessClaim(const ProcessClaim&) = delete;
    ProcessClaim& operator=(const ProcessClaim&) = delete;
    ~ProcessClaim();

    // Takes the claim on `name` (at most 100 bytes). Not held when another process holds it
    // (`error()` is EADDRINUSE) or when a step fails (`error()` holds its errno).
    static ProcessClaim take(const std::string& name);

    // The process id of the holder of `name`; nothing when nobody holds it, or when the holder
    // can't be asked.
    static std::optional<int> holder(const std::string& name);

    bool held() const { return m_fd >= 0; }
    int error() const { return m_error; }

    // Gives the claim up; the name is free again at once.
    void release();

  private:
    int m_fd = -1;
    int m_error = 0;
};

}  // namespace ovtx::system::ipc::v2
