// The binaries and files of the build, for tests that run them and read what they wrote.
//
//   PipedChild run = PipedChild::spawn(binaryPath("sdi_tap"), {...});
//   const std::string bytes = readFileBytes(dir / "video.y4m");
//   auto magic = valueAt<std::uint16_t>(bytes, 0);
#pragma once

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace ovtx::test_support::v1 {

// The path of a binary built next to the tests: in SDI_TAP_BIN_DIR (set by ctest), else beside
// the running program.
inline std::string binaryPath(const std::string& name) {
    const char* dir = std::getenv("SDI_TAP_BIN_DIR");
    if (dir != nullptr) {
        return std::string(dir) + "/" + name;
    }
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / name).string();
}

// The whole file; empty when it does not exist.
inline std::string readFileBytes(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The little-endian value at `offset` of `bytes`; zero when it lies past the end.
template <typename Value>
Value valueAt(const std::string& bytes, std::size_t offset) {
    Value value{};
    if (offset + sizeof value <= bytes.size()) {
        std::memcpy(&value, bytes.data() + offset, sizeof value);
    }
    return value;
}

}  // namespace ovtx::test_support::v1
