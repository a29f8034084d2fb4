#include "system/registry/registry.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>

namespace ovtx::system::registry::v1 {
namespace {

std::string registryRoot() {
    const char* root = std::getenv(kRegistryRootVariable);
    return root != nullptr && *root != '\0' ? root : kDefaultRegistryRoot;
}

bool isDirectory(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

std::optional<RegistryKey> RegistryKey::open(std::string_view keyPath) {
    std::string directory = registryRoot();
    std::string component;
    auto appendComponent = [&] {
        if (!component.empty()) {
            directory += '/';
            directory += component;
            component.clear();
        }
    };
    for (char c : keyPath) {
        if (c == '\\') {
            appendComponent();
        } else {
            component += c;
        }
    }
    appendComponent();
    if (!isDirectory(directory)) {
        return std::nullopt;
    }
    return RegistryKey(directory);
}

std::optional<std::string> RegistryKey::queryValue(std::string_view valueName, std::size_t bufferSize) const {
    if (bufferSize == 0) {
        return std::nullopt;
    }
    std::ifstream file(m_directory + "/" + std::string(valueName), std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    // A line end may follow a value that fills the buffer; anything longer can't fit.
    std::string value(bufferSize + 2, '\0');
    file.read(value.data(), static_cast<std::streamsize>(value.size()));
    if (file.bad()) {
        return std::nullopt;
    }
    value.resize(static_cast<std::size_t>(file.gcount()));
    if (value.ends_with("\r\n")) {
        value.resize(value.size() - 2);
    } else if (value.ends_with('\n')) {
        value.pop_back();
    }
    // The value and its terminating NUL must fit the buffer, or the read fails as a whole.
    if (value.size() + 1 > bufferSize) {
        return std::nullopt;
    }
    if (const std::size_t nul = value.find('\0'); nul != std::string::npos) {
        value.resize(nul);
    }
    return value;
}

}  // namespace ovtx::system::registry::v1
