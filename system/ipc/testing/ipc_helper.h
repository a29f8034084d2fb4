// The other process of the ipc tests and of bench/ipc_bench: ipc_test_helper, driven line by line
// over its standard input and output. At the end of its input it closes its objects and exits.
//
//   PipedChild other = startIpcHelper();
//   EXPECT_EQ(other.ask("mapping N 8192"), "ok 8192");
//   other.writeLine("wait 60000");
//   eventually([&] { return sleepsOnSharedFutex(other.pid()); });
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "system/process/piped_child.h"
#include "testing/files.h"

namespace ovtx::system::ipc::v2::testing {

using process::v1::PipedChild;

inline PipedChild startIpcHelper(const std::vector<std::string>& arguments = {},
                                 const std::map<std::string, std::string>& environment = {}) {
    process::v1::SpawnOptions options;
    options.graceOnClose = std::chrono::seconds(5);
    options.environment = environment;
    return PipedChild::spawn(test_support::v1::binaryPath("ipc_test_helper"), arguments, options);
}

// Whether process `pid` sleeps on a shared futex (an event wait or a mutex wait), as the kernel
// reports its current system call: "<number> <first argument> <second argument> ...", the second
// being the futex operation.
inline bool sleepsOnSharedFutex(int pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/syscall");
    long number = -1;
    unsigned long address = 0;
    unsigned long operation = 0;
    file >> number >> std::hex >> address >> operation;
    const unsigned long command = operation & FUTEX_CMD_MASK;
    const bool shared = (operation & FUTEX_PRIVATE_FLAG) == 0;
    return file && number == SYS_futex && shared && (command == FUTEX_WAIT_BITSET || command == FUTEX_WAIT);
}

inline bool shmEntryExists(const std::string& name) {
    return std::filesystem::exists("/dev/shm/" + name);
}

}  // namespace ovtx::system::ipc::v2::testing
