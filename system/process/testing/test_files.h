// Small helpers for tests that run the project's binaries and read what they wrote.
//
//   const std::string bytes = readFileBytes(dir / "video.y4m");
//   auto magic = valueAt<std::uint16_t>(bytes, 0);
//   ChildProcess run(binaryPath("sdi_tap"), {...});
#pragma once

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace ovtx::system::process::testing {

// The path of a binary built next to the tests (SDI_TAP_BIN_DIR, set by ctest; the working
// directory otherwise).
inline std::string binaryPath(const std::string& name) {
    const char* dir = std::getenv("SDI_TAP_BIN_DIR");
    return std::string(dir != nullptr ? dir : ".") + "/" + name;
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

}  // namespace ovtx::system::process::testing
