// The machine registry of the installation, read-only.
//
// The registry is a directory tree standing for HKEY_LOCAL_MACHINE, rooted at the directory named
// by the environment variable SDI_TAP_REGISTRY (default /etc/sdi_tap/registry). A key such as
// `SOFTWARE\FirmwareAgent\CurrentVersion\` is the directory SOFTWARE/FirmwareAgent/CurrentVersion
// below the root, and a value is a file in that directory whose text is the value (one trailing
// line end is not part of it).
//
//   if (auto key = RegistryKey::open("SOFTWARE\\FirmwareAgent\\CurrentVersion\\")) {
//       std::optional<std::string> path = key->queryValue("Pathname", 255);
//   }
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ovtx::system::registry::v1 {

inline constexpr const char* kRegistryRootVariable = "SDI_TAP_REGISTRY";
inline constexpr const char* kDefaultRegistryRoot = "/etc/sdi_tap/registry";

class RegistryKey {
  public:
    // Opens a key below HKEY_LOCAL_MACHINE; nothing when the key does not exist.
    static std::optional<RegistryKey> open(std::string_view keyPath);

    // Reads a text value into a buffer of `bufferSize` bytes, as a NUL-ended string cut at its
    // first NUL. Nothing when the value does not exist, can't be read, or does not fit the buffer
    // with its NUL (more than `bufferSize` - 1 bytes).
    std::optional<std::string> queryValue(std::string_view valueName, std::size_t bufferSize) const;

    const std::string& directory() const { return m_directory; }

  private:
    explicit RegistryKey(std::string directory) : m_directory(std::move(directory)) {}
    std::string m_directory;
};

}  // namespace ovtx::system::registry::v1
