// Small file-system helpers: copy, list, create and remove files and directories.
//
// Every failure throws `FileException` (an `ExceptionTemplate<File>` of the program's exception
// family) whose text names the path and the `errno` of the failing call, for instance
// "could not create directory [/opt/sdi/Logs]: Win32 error 13". The words stay those of the
// daemon's other builds so that log readers and scripts see one wording.
//
//   createDirectories(root + "/Logs");
//   for (const auto& entry : enumerateDirectory(root + "/Logs")) { ... }
//   removeDirectoryRecursive(scratch);
#pragma once

#include <string>
#include <vector>

#include "cpp_utils/exception_utils/exception_utils.h"

namespace ovtx::system::file::v2 {

class File;
using FileException = cpp_utils::exception_utils::v1::ExceptionTemplate<File>;

struct DirectoryEntry {
    std::string name;  // the entry's name alone, never "." or ".."
    bool isDirectory = false;
};

// Copies `source` to `target`, replacing `target`. Fails with "cannot copy <source> to <target>".
void copyFile(const std::string& source, const std::string& target);

// The entries of a directory, in the order the file system gives them. Fails with
// "could not enumerate the contents of [<path>]: Win32 error <errno>".
std::vector<DirectoryEntry> enumerateDirectory(const std::string& path);

// Creates one directory. Fails with "could not create directory [<path>]: Win32 error <errno>",
// also when it exists already.
void createDirectory(const std::string& path);

// Creates the directory and every missing parent; an existing directory is fine. Fails as
// createDirectory does for the first directory it cannot create.
void createDirectories(const std::string& path);

// Fails with "could not remove file [<path>]: Win32 error <errno>".
void removeFile(const std::string& path);

// Removes an empty directory. Fails with "could not remove directory [<path>]: Win32 error <errno>".
void removeDirectory(const std::string& path);

// Removes a directory with everything in it; fails as the single removals do.
void removeDirectoryRecursive(const std::string& path);

// Copies a directory tree into `target`, creating it; files there are replaced.
void copyDirectoryRecursive(const std::string& source, const std::string& target);

bool pathExists(const std::string& path);
bool isDirectory(const std::string& path);

// Throws "<path> is not a directory" unless `path` is an existing directory.
void checkIsDirectory(const std::string& path);

// The absolute form of `path`, with "." and ".." resolved and repeated separators removed,
// without touching the file system beyond the current directory. Fails with "invalid path [<path>]"
// for an empty path or one that climbs above the root.
std::string normalisePath(const std::string& path);

}  // namespace ovtx::system::file::v2
