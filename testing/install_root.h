// An installation of the daemon for one test: a registry directory whose Pathname names
// <dir>/root/App/Bin, so that the log file lands in <dir>/root/Logs. Everything goes with the
// object.
//
//   InstallRoot install;
//   options.environment = install.environment();
//   auto daemon = PipedChild::spawn(binaryPath("sdi_tap"), {...}, options);
//   readLogFile(install.logFile("0"));
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace ovtx::test_support::v1 {

class InstallRoot {
  public:
    // With `pathname` false the registry exists but holds no Pathname.
    explicit InstallRoot(bool pathname = true);
    InstallRoot(const InstallRoot&) = delete;
    InstallRoot& operator=(const InstallRoot&) = delete;
    ~InstallRoot();

    // Writes `text` as the Pathname value of the first registry key.
    void setPathname(const std::string& text) const;

    const std::filesystem::path& directory() const { return m_dir; }
    std::filesystem::path registry() const { return m_dir / "registry"; }
    std::filesystem::path root() const { return m_dir / "root"; }
    std::filesystem::path logFile(const std::string& portName) const;
    // SDI_TAP_REGISTRY for a child process, and SDI_TAP_HTTP_BASE_URL for a free loopback port.
    std::map<std::string, std::string> environment() const;

  private:
    std::filesystem::path m_dir;
};

}  // namespace ovtx::test_support::v1
