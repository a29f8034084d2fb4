// An installation of the daemon for one test: a registry directory whose Pathname names
// <dir>/root/App/Bin, so that the log file lands in <dir>/root/Logs, and the scenario files of
// its simulated boards. Everything goes with the object.
//
//   InstallRoot install;
//   const std::string scenario = install.writeScenario(R"("rx": 8)", R"("ports": {"5": {...}})");
//   PipedChild daemon = install.start("sdi_tap", {"-sdiport", "5", "-videoformat", "0"}, scenario);
//   readLogFile(install.logFile("5"));
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "system/process/piped_child.h"

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

    // Writes <dir>/board.json for the simulated board and gives its path: a board of `boardKeys`
    // (JSON members) with a serial of this test process alone, since boards of one serial share
    // their ports' claims machine-wide, and the scenario's `otherKeys` ("ports" among them).
    std::string writeScenario(const std::string& boardKeys, const std::string& otherKeys) const;

    // Starts the binary `name` of the build with this installation's environment, `environment`
    // on top, standard error collected; on the simulated board of `scenario` unless it is empty.
    system::process::v1::PipedChild start(const std::string& name, const std::vector<std::string>& arguments,
                                          const std::string& scenario = "",
                                          const std::map<std::string, std::string>& environment = {}) const;

  private:
    std::filesystem::path m_dir;
};

}  // namespace ovtx::test_support::v1
