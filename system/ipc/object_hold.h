// Internal to system/ipc: the lifetime of a named object across processes.
//
// A named object `N` is the POSIX shared-memory object `/N`. Each holder has an open file
// description of its own and keeps a shared open-file-description lock on byte 1 of it; an
// exclusive lock on byte 0 serialises open, initialisation and close between processes:
//
// - An opener that finds byte 1 unlocked is alone: the object is new, or stale (left by a holder
//   that died) or half-initialised (its creator died), and the opener initialises it afresh.
// - A closer that can lock byte 1 exclusively is the last holder and unlinks the name.
// - An opener that finds the file unlinked once it holds byte 0 raced a last close: it retries
//   and creates a new object.
//
// OFD locks belong to the open file description, not to the process: the kernel drops them
// when the last descriptor of it is closed, which includes a holder's death. Descriptors are
// opened with O_CLOEXEC; a child that `fork`s without `exec` shares its parent's holds.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

#include "system/ipc/posix_call.h"

namespace ovtx::system::ipc::v2::internal {

enum class OpenMode {
    CreateOrJoin,  // the first opener creates and initialises the object
    OpenOnly,      // fails with ENOENT unless some process holds the object
    // Removes the name (whatever file stands there, held or not, a directory excepted) and
    // creates the object afresh; earlier holders keep the old object under no name. Where the
    // name can't be removed (another user's file in the sticky /dev/shm), falls back to
    // CreateOrJoin.
    Replace,
};

// Called with the object's descriptor, under the exclusive lock: `initialise` by an opener that
// is alone (the file may hold anything, left by a dead holder), `join` by one that is not.
using ObjectStep = std::function<SysError(int fd)>;

struct HoldResult {
    int fd = -1;  // the holder's descriptor, or -1 with `error` set
    SysError error;
};

// Opens `/name` and becomes one of its holders. An object this call creates gets the access
// of `objectAccessProblem` (object_access.h).
HoldResult acquireHold(std::string_view name, OpenMode mode, const ObjectStep& initialise,
                       const ObjectStep& join);

// Becomes one more holder of the object that `heldFd` (a holder's descriptor) refers to, with a
// description of its own, so that both holds are released independently.
HoldResult duplicateHold(std::string_view name, int heldFd);

// Gives the hold of `fd` up and closes it; the last holder unlinks the name.
SysError releaseHold(std::string_view name, int fd);

// Whether the name still refers to the object `fd` holds (it was neither replaced nor removed).
bool stillNamed(int fd);

}  // namespace ovtx::system::ipc::v2::internal

namespace ovtx::system::ipc::v2::internal {

// For tests of crashes: called under the exclusive lock, just before `initialise`, with the name.
using InitialiseHook = void (*)(std::string_view name);
void setInitialiseHook(InitialiseHook hook);

}  // namespace ovtx::system::ipc::v2::internal
