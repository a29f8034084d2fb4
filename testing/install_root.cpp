#include "testing/install_root.h"

#include <fstream>

#include "testing/files.h"
#include "testing/shm.h"

namespace ovtx::test_support::v1 {

InstallRoot::InstallRoot(bool pathname)
    : m_dir(std::filesystem::temp_directory_path() / uniqueName("sdi_tap_install_")) {
    std::filesystem::create_directories(registry() / "SOFTWARE" / "FirmwareAgent" / "CurrentVersion");
    std::filesystem::create_directories(root() / "App" / "Bin");
    if (pathname) {
        setPathname((root() / "App" / "Bin").string() + "\n");
    }
}

InstallRoot::~InstallRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
}

void InstallRoot::setPathname(const std::string& text) const {
    std::ofstream(registry() / "SOFTWARE" / "FirmwareAgent" / "CurrentVersion" / "Pathname", std::ios::binary)
        << text;
}

std::filesystem::path InstallRoot::logFile(const std::string& portName) const {
    return root() / "Logs" / ("sdi_tap." + portName + ".log");
}

std::map<std::string, std::string> InstallRoot::environment() const {
    // A run serves its REST tree on a free loopback port, never on the machine's port 80.
    return {{"SDI_TAP_REGISTRY", registry().string()}, {"SDI_TAP_HTTP_BASE_URL", "http://127.0.0.1:0"}};
}

std::string InstallRoot::writeScenario(const std::string& boardKeys, const std::string& otherKeys) const {
    const std::filesystem::path path = m_dir / "board.json";
    std::ofstream(path) << R"({"board": {"serial": "0x5E3)" << system::process::v1::currentProcessId() << '"'
                        << (boardKeys.empty() ? "" : ", ") << boardKeys << "}, " << otherKeys << "}";
    return path.string();
}

system::process::v1::PipedChild InstallRoot::start(
    const std::string& name, const std::vector<std::string>& arguments, const std::string& scenario,
    const std::map<std::string, std::string>& environment) const {
    system::process::v1::SpawnOptions options;
    options.environment = this->environment();
    if (!scenario.empty()) {
        options.environment["SDI_TAP_SIMULATED_BOARD"] = scenario;
    }
    for (const auto& [key, value] : environment) {
        options.environment[key] = value;
    }
    options.captureStandardError = true;
    return system::process::v1::PipedChild::spawn(binaryPath(name), arguments, options);
}

}  // namespace ovtx::test_support::v1
