#include "pattern/run_test_support.h"

#include <filesystem>

namespace ovtx::pattern::pattern_source::v1 {

std::vector<std::string> sharedObjectsOf(const std::string& portName) {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        const std::string name = entry.path().filename().string();
        if (name.find("_" + portName + "_") != std::string::npos || name.ends_with("_" + portName)) {
            found.push_back(name);
        }
    }
    return found;
}

}  // namespace ovtx::pattern::pattern_source::v1
