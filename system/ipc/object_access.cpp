#include "system/ipc/object_access.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "system/ipc/object_access_internal.h"

namespace ovtx::system::ipc::v2 {

namespace {

struct ObjectAccess {
    std::optional<mode_t> mode;
    std::optional<gid_t> group;
    std::optional<std::string> problem;
};

std::optional<unsigned long> wholeNumber(const std::string& text, int base) {
    if (text.empty() || text.find_first_not_of(base == 8 ? "01234567" : "0123456789") != std::string::npos) {
        return std::nullopt;
    }
    errno = 0;
    const unsigned long value = std::strtoul(text.c_str(), nullptr, base);
    return errno == 0 ? std::optional<unsigned long>(value) : std::nullopt;
}

std::optional<gid_t> groupId(const std::string& text) {
    if (const auto number = wholeNumber(text, 10)) {
        return static_cast<gid_t>(*number);
    }
    group entry{};
    group* found = nullptr;
    std::vector<char> buffer(16384);
    if (::getgrnam_r(text.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        return std::nullopt;
    }
    return found->gr_gid;
}

ObjectAccess readEnvironment() {
    ObjectAccess access;
    if (const char* mode = std::getenv(kObjectModeVariable); mode != nullptr && *mode != '\0') {
        const auto bits = wholeNumber(mode, 8);
        if (!bits || *bits > 0777) {
            access.problem = std::string(kObjectModeVariable) + ": '" + mode +
                             "' is not a mode in octal between 0 and 0777";
            return access;
        }
        access.mode = static_cast<mode_t>(*bits);
    }
    if (const char* group = std::getenv(kObjectGroupVariable); group != nullptr && *group != '\0') {
        access.group = groupId(group);
        if (!access.group) {
            access.problem = std::string(kObjectGroupVariable) + ": no group named '" + group + "'";
        }
    }
    return access;
}

const ObjectAccess& objectAccess() {
    static const ObjectAccess access = readEnvironment();
    return access;
}

}  // namespace

std::optional<std::string> objectAccessProblem() {
    return objectAccess().problem;
}

namespace internal {

SysError applyObjectAccess(int fd) {
    const ObjectAccess& access = objectAccess();
    SysError error;
    if (access.problem) {
        return sysError(EINVAL, "getenv(SDI_TAP_SHM_*)");
    }
    if (!access.group && !access.mode) {
        return error;
    }
    // A stale file that another user left with the right group and mode is taken as it is: only
    // its owner could change them.
    struct stat status {};
    if (posixCall(error, "fstat", [&] { return ::fstat(fd, &status); }) != 0) {
        return error;
    }
    if (access.group && status.st_gid != *access.group) {
        posixCall(error, "fchown", [&] { return ::fchown(fd, static_cast<uid_t>(-1), *access.group); });
    }
    if (access.mode && (status.st_mode & 07777) != *access.mode) {
        posixCall(error, "fchmod", [&] { return ::fchmod(fd, *access.mode); });
    }
    return error;
}

}  // namespace internal

}  // namespace ovtx::system::ipc::v2
