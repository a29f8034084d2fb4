#include "system/file/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>

namespace ovtx::system::file::v2 {

namespace {

// Throws the failure of the last call, worded with `format` ("... [%s]: Win32 error %lu").
[[noreturn]] void throwWithErrno(const char* format, const std::string& path) {
    const unsigned long error = static_cast<unsigned long>(errno);
    char text[PATH_MAX + 128];
    std::snprintf(text, sizeof text, format, path.c_str(), error);
    throw FileException(text);
}

// A descriptor closed on every path out.
class Descriptor {
  public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }
    // Closes now and reports whether the data reached the file.
    bool close() {
        const int fd = m_fd;
        m_fd = -1;
        return ::close(fd) == 0;
    }

  private:
    int m_fd;
};

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

bool writeAll(int fd, const char* data, ssize_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, static_cast<std::size_t>(size));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        data += written;
        size -= written;
    }
    return true;
}

bool copyContent(const std::string& source, const std::string& target) {
    Descriptor in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (in.get() < 0 || ::fstat(in.get(), &status) != 0) {
        return false;
    }
    Descriptor out(::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, status.st_mode & 07777));
    if (out.get() < 0) {
        return false;
    }
    char buffer[65536];
    while (true) {
        const ssize_t read = ::read(in.get(), buffer, sizeof buffer);
        if (read < 0 && errno == EINTR) {
            continue;
        }
        if (read < 0) {
            return false;
        }
        if (read == 0) {
            return out.close();
        }
        if (!writeAll(out.get(), buffer, read)) {
            return false;
        }
    }
}

std::string joinPath(const std::string& directory, const std::string& name) {
    return !directory.empty() && directory.back() == '/' ? directory + name : directory + "/" + name;
}

}  // namespace

void copyFile(const std::string& source, const std::string& target) {
    if (!copyContent(source, target)) {
        throw FileException("cannot copy " + source + " to " + target);
    }
}

std::vector<DirectoryEntry> enumerateDirectory(const std::string& path) {
    std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(path.c_str()));
    if (!directory) {
        throwWithErrno("could not enumerate the contents of [%s]: Win32 error %lu", path);
    }
    std::vector<DirectoryEntry> entries;
    while (true) {
        errno = 0;
        const dirent* entry = ::readdir(directory.get());
        if (entry == nullptr) {
            if (errno != 0) {
                throwWithErrno("could not enumerate the contents of [%s]: Win32 error %lu", path);
            }
            return entries;
        }
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        bool directoryEntry = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN || entry->d_type == DT_LNK) {
            directoryEntry = isDirectory(joinPath(path, name));
        }
        entries.push_back(DirectoryEntry{name, directoryEntry});
    }
}

void createDirectory(const std::string& path) {
    if (::mkdir(path.c_str(), 0777) != 0) {
        throwWithErrno("could not create directory [%s]: Win32 error %lu", path);
    }
}

void createDirectories(const std::string& path) {
    if (path.empty() || isDirectory(path)) {
        return;
    }
    const auto slash = path.find_last_of('/', path.size() - 2);
    if (slash != std::string::npos && slash > 0) {
        createDirectories(path.substr(0, slash));
    }
    if (::mkdir(path.c_str(), 0777) != 0 && !(errno == EEXIST && isDirectory(path))) {
        throwWithErrno("could not create directory [%s]: Win32 error %lu", path);
    }
}

void removeFile(const std::string& path) {
    if (::unlink(path.c_str()) != 0) {
        throwWithErrno("could not remove file [%s]: Win32 error %lu", path);
    }
}

void removeDirectory(const std::string& path) {
    if (::rmdir(path.c_str()) != 0) {
        throwWithErrno("could not remove directory [%s]: Win32 error %lu", path);
    }
}

void removeDirectoryRecursive(const std::string& path) {
    for (const auto& entry : enumerateDirectory(path)) {
        const std::string child = joinPath(path, entry.name);
        struct stat status {};
        // A link to a directory is removed as a link, never followed.
        if (entry.isDirectory && ::lstat(child.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
            removeDirectoryRecursive(child);
        } else {
            removeFile(child);
        }
    }
    removeDirectory(path);
}

void copyDirectoryRecursive(const std::string& source, const std::string& target) {
    checkIsDirectory(source);
    createDirectories(target);
    for (const auto& entry : enumerateDirectory(source)) {
        const std::string from = joinPath(source, entry.name);
        const std::string to = joinPath(target, entry.name);
        if (entry.isDirectory) {
            copyDirectoryRecursive(from, to);
        } else {
            copyFile(from, to);
        }
    }
}

bool pathExists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

bool isDirectory(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void checkIsDirectory(const std::string& path) {
    if (!isDirectory(path)) {
        throw FileException(path + " is not a directory");
    }
}

std::string normalisePath(const std::string& path) {
    if (path.empty() || path.find('\0') != std::string::npos) {
        throw FileException("invalid path [" + path + "]");
    }
    std::string absolute = path;
    if (path.front() != '/') {
        char directory[PATH_MAX];
        if (::getcwd(directory, sizeof directory) == nullptr) {
            throw FileException("invalid path [" + path + "]");
        }
        absolute = joinPath(directory, path);
    }
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (start <= absolute.size()) {
        auto end = absolute.find('/', start);
        if (end == std::string::npos) {
            end = absolute.size();
        }
        const std::string part = absolute.substr(start, end - start);
        if (part == "..") {
            if (parts.empty()) {
                throw FileException("invalid path [" + path + "]");
            }
            parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        start = end + 1;
    }
    std::string normalised;
    for (const auto& part : parts) {
        normalised += "/" + part;
    }
    return normalised.empty() ? "/" : normalised;
}

}  // namespace ovtx::system::file::v2
