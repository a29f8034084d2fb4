// Internal to system/ipc: one way to make a system call and keep what went wrong.
//
// Every call of the named-object code goes through `posixCall` (calls that return -1 and set
// errno) or `pthreadCall` (calls that return the error number), so that a failure always carries
// the errno and the name of the operation that produced it:
//
//   SysError error;
//   const long fd = posixCall(error, "shm_open", [&] { return ::shm_open(path, O_RDWR, 0666); });
//   if (error) return error;
#pragma once

#include <algorithm>
#include <cerrno>
#include <initializer_list>

namespace ovtx::system::ipc::v2::internal {

// The errno of a failed call and the operation's name; `code == 0` means success.
struct SysError {
    int code = 0;
    const char* operation = nullptr;

    explicit operator bool() const { return code != 0; }
};

inline SysError sysError(int code, const char* operation) {
    return SysError{code, operation};
}

// Runs `call` until it does not fail with EINTR. On -1 records errno and `operation` in `error`
// (unless `error` already holds an earlier failure, or errno is one of the `expected` outcomes,
// as EAGAIN of a lock that is taken; errno then still tells which) and returns -1; otherwise
// returns the result.
template <typename Call>
long posixCall(SysError& error, const char* operation, Call&& call,
               std::initializer_list<int> expected = {}) {
    long result;
    do {
        result = static_cast<long>(call());
    } while (result == -1 && errno == EINTR);
    if (result == -1 && std::find(expected.begin(), expected.end(), errno) == expected.end() && !error) {
        error = SysError{errno, operation};
    }
    return result;
}

// For calls that return 0 or an error number (pthread_*): records a result other than 0 and the
// `expected` outcomes (as ETIMEDOUT of a timed wait) as the error, and returns the result.
template <typename Call>
int pthreadCall(SysError& error, const char* operation, Call&& call,
                std::initializer_list<int> expected = {}) {
    const int result = call();
    if (result != 0 && std::find(expected.begin(), expected.end(), result) == expected.end() && !error) {
        error = SysError{result, operation};
    }
    return result;
}

}  // namespace ovtx::system::ipc::v2::internal
