#include "testing/shm.h"

#include <algorithm>
#include <filesystem>

#include "system/process/piped_child.h"

namespace ovtx::test_support::v1 {

std::vector<std::string> shmEntries(const std::string& part) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        const std::string name = entry.path().filename().string();
        if (name.find(part) != std::string::npos) {
            names.push_back(name);
        }
    }
    return names;
}

std::vector<std::string> runObjects(const std::string& portName) {
    std::vector<std::string> names;
    for (const std::string& name : shmEntries("_" + portName)) {
        if (name.ends_with("_" + portName) || name.find("_" + portName + "_") != std::string::npos) {
            names.push_back(name);
        }
    }
    return names;
}

void removeShmEntries(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        std::filesystem::remove_all("/dev/shm/" + name);
    }
}

std::string uniqueName(const std::string& tag) {
    static int counter = 0;
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = tag + std::to_string(system::process::v1::currentProcessId()) + "x" +
                       std::to_string(++counter) + (test != nullptr ? test->name() : "");
    // A parameterised test's name holds a '/', which would make a path of the name.
    std::replace(name.begin(), name.end(), '/', '_');
    return name;
}

}  // namespace ovtx::test_support::v1
