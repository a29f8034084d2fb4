#include "system/ipc/object_hold.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <climits>

#include "system/ipc/object_access_internal.h"

namespace ovtx::system::ipc::v2::internal {
namespace {

constexpr off_t kGuardByte = 0;   // exclusive: open, initialisation and close
constexpr off_t kHolderByte = 1;  // shared by every holder
// Where shm_open keeps its objects: a replacement looks at what stands under a name first.
constexpr char kShmDirectory[] = "/dev/shm";
// A replacement that keeps losing its fresh file to other openers gives up after this many tries.
constexpr int kReplaceAttempts = 64;

std::atomic<InitialiseHook> g_initialiseHook{nullptr};

std::string objectPath(std::string_view name) {
    // Appended piecewise: GCC 12's -Wrestrict misfires on `"/" + std::string(name)` at -O3.
    std::string path;
    path.reserve(name.size() + 1);
    path += '/';
    path += name;
    return path;
}

struct flock byteLock(short type, off_t byte) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    lock.l_pid = 0;  // required by F_OFD_* commands
    return lock;
}

// Waits for the lock; fails only on a system error.
SysError waitForLock(int fd, short type, off_t byte) {
    SysError error;
    struct flock lock = byteLock(type, byte);
    posixCall(error, "fcntl(F_OFD_SETLKW)", [&] { return ::fcntl(fd, F_OFD_SETLKW, &lock); });
    return error;
}

// Takes the lock if nobody else's lock conflicts; `taken` tells whether it did.
SysError tryLock(int fd, short type, off_t byte, bool& taken) {
    SysError error;
    struct flock lock = byteLock(type, byte);
    taken = posixCall(error, "fcntl(F_OFD_SETLK)", [&] { return ::fcntl(fd, F_OFD_SETLK, &lock); },
                      {EAGAIN, EACCES}) == 0;
    return error;
}

SysError unlockGuard(int fd) {
    SysError error;
    struct flock lock = byteLock(F_UNLCK, kGuardByte);
    posixCall(error, "fcntl(F_OFD_SETLK)", [&] { return ::fcntl(fd, F_OFD_SETLK, &lock); });
    return error;
}

void closeQuietly(int fd) {
    ::close(fd);
}

// Unlinks the name while it still refers to `fd`'s file (the caller holds the guard byte).
SysError unlinkIfLinked(const std::string& path, int fd) {
    SysError error;
    struct stat status {};
    if (posixCall(error, "fstat", [&] { return ::fstat(fd, &status); }) == 0 && status.st_nlink > 0) {
        posixCall(error, "shm_unlink", [&] { return ::shm_unlink(path.c_str()); }, {ENOENT});
    }
    return error;
}

enum class Attempt { Held, Retry, Failed };

bool isDirectory(const std::string& path) {
    struct stat status {};
    return ::lstat((kShmDirectory + path).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Removes whatever stands under `path` so that a fresh object can take the name: a holder's file
// is unlinked under its guard byte (openers and closers of it then see it gone), anything else
// that is not a directory (a link, a FIFO) is simply unlinked. ENOENT is success.
SysError removeName(const std::string& path) {
    SysError error;
    const std::string file = kShmDirectory + path;
    struct stat status {};
    if (posixCall(error, "lstat", [&] { return ::lstat(file.c_str(), &status); }, {ENOENT}) != 0) {
        return error;
    }
    if (S_ISDIR(status.st_mode)) {
        return sysError(EISDIR, "shm_unlink");
    }
    if (S_ISREG(status.st_mode)) {
        const int fd = ::shm_open(path.c_str(), O_RDWR | O_CLOEXEC, 0);
        if (fd >= 0) {
            error = waitForLock(fd, F_WRLCK, kGuardByte);
            if (!error) {
                error = unlinkIfLinked(path, fd);
            }
            closeQuietly(fd);
            return error;
        }
    }
    posixCall(error, "shm_unlink", [&] { return ::shm_unlink(path.c_str()); }, {ENOENT});
    return error;
}

// One open of the file under the guard byte; Retry when the file was unlinked meanwhile, or,
// when replacing, when another opener made the new file first.
Attempt tryToHold(const std::string& path, OpenMode mode, const ObjectStep& initialise,
                  const ObjectStep& join, HoldResult& result) {
    SysError& error = result.error;
    if (mode == OpenMode::Replace && (error = removeName(path))) {
        return Attempt::Failed;
    }
    const int flags = O_RDWR | O_CLOEXEC | (mode == OpenMode::OpenOnly ? 0 : O_CREAT) |
                      (mode == OpenMode::Replace ? O_EXCL : 0);
    const int fd = static_cast<int>(
        posixCall(error, "shm_open", [&] { return ::shm_open(path.c_str(), flags, 0666); }, {EEXIST}));
    if (fd < 0) {
        if (error.code == EINVAL && isDirectory(path)) {  // glibc words a directory EINVAL
            error.code = EISDIR;
        }
        return error ? Attempt::Failed : Attempt::Retry;  // EEXIST: another opener was first
    }
    if ((error = waitForLock(fd, F_WRLCK, kGuardByte))) {
        closeQuietly(fd);
        return Attempt::Failed;
    }
    struct stat status {};
    if (posixCall(error, "fstat", [&] { return ::fstat(fd, &status); }) < 0) {
        closeQuietly(fd);
        return Attempt::Failed;
    }
    if (status.st_nlink == 0) {  // the last holder unlinked it between our open and our lock
        closeQuietly(fd);
        return Attempt::Retry;
    }
    bool alone = false;
    if ((error = tryLock(fd, F_WRLCK, kHolderByte, alone))) {
        closeQuietly(fd);
        return Attempt::Failed;
    }
    if (!alone && mode == OpenMode::Replace) {  // another opener joined the fresh file first
        closeQuietly(fd);
        return Attempt::Retry;
    }
    if (alone) {
        if (mode == OpenMode::OpenOnly) {
            error = sysError(ENOENT, "shm_open");  // nobody holds it: a stale file is no object
        } else if (InitialiseHook hook = g_initialiseHook.load(); hook != nullptr) {
            hook(path.substr(1));
        }
        if (!error) {
            error = applyObjectAccess(fd);
        }
        if (!error) {
            error = initialise(fd);
        }
        if (error) {
            unlinkIfLinked(path, fd);
            closeQuietly(fd);
            return Attempt::Failed;
        }
    } else if ((error = join(fd))) {
        closeQuietly(fd);
        return Attempt::Failed;
    }
    // Turns the exclusive lock of a lone opener into a shared one, or adds ours to the others'.
    if ((error = waitForLock(fd, F_RDLCK, kHolderByte)) || (error = unlockGuard(fd))) {
        closeQuietly(fd);
        return Attempt::Failed;
    }
    result.fd = fd;
    return Attempt::Held;
}

}  // namespace

void setInitialiseHook(InitialiseHook hook) {
    g_initialiseHook.store(hook);
}

HoldResult acquireHold(std::string_view name, OpenMode mode, const ObjectStep& initialise,
                       const ObjectStep& join) {
    // shm_open itself says EINVAL for both; a name too long for /dev/shm deserves its own reason.
    if (name.size() + 1 >= NAME_MAX) {
        return HoldResult{-1, sysError(ENAMETOOLONG, "shm_open")};
    }
    if (name.find('\0') != std::string_view::npos) {
        return HoldResult{-1, sysError(EINVAL, "shm_open")};
    }
    const std::string path = objectPath(name);
    for (int attempt = 0;; ++attempt) {
        if (mode == OpenMode::Replace && attempt == kReplaceAttempts) {
            return HoldResult{-1, sysError(EBUSY, "shm_open")};
        }
        HoldResult result;
        const Attempt outcome = tryToHold(path, mode, initialise, join, result);
        // Another user's file in the sticky /dev/shm can't be removed: join it as it is.
        if (outcome == Attempt::Failed && mode == OpenMode::Replace &&
            (result.error.code == EPERM || result.error.code == EACCES) &&
            std::string_view(result.error.operation) == "shm_unlink") {
            mode = OpenMode::CreateOrJoin;
            continue;
        }
        if (outcome != Attempt::Retry) {
            return result;
        }
    }
}

bool stillNamed(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 && status.st_nlink > 0;
}

HoldResult duplicateHold(std::string_view name, int heldFd) {
    struct stat held {};
    if (::fstat(heldFd, &held) != 0) {
        return HoldResult{-1, sysError(errno, "fstat")};
    }
    // While `heldFd` holds the object its name refers to the same file; anything else means the
    // file was removed behind the holders' backs.
    const auto sameFile = [&](int fd) {
        struct stat status {};
        if (::fstat(fd, &status) != 0) {
            return sysError(errno, "fstat");
        }
        const bool same = status.st_dev == held.st_dev && status.st_ino == held.st_ino;
        return same ? SysError{} : sysError(ENOENT, "shm_open");
    };
    const auto lostObject = [](int) { return sysError(ENOENT, "shm_open"); };
    return acquireHold(name, OpenMode::OpenOnly, lostObject, sameFile);
}

SysError releaseHold(std::string_view name, int fd) {
    SysError error = waitForLock(fd, F_WRLCK, kGuardByte);
    bool last = false;
    if (!error) {
        error = tryLock(fd, F_WRLCK, kHolderByte, last);
    }
    if (!error && last) {
        unlinkIfLinked(objectPath(name), fd);
    }
    // Closing drops both locks at once, so that no opener sees the holder byte free before the
    // name is gone.
    // No retry on EINTR: Linux releases the descriptor whatever close returns.
    if (::close(fd) != 0 && !error) {
        error = sysError(errno, "close");
    }
    return error;
}

}  // namespace ovtx::system::ipc::v2::internal
