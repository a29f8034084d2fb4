// Internal to system/ipc: gives a newly created object file the configured group and mode.
#pragma once

#include "system/ipc/posix_call.h"

namespace ovtx::system::ipc::v2::internal {

// Applies SDI_TAP_SHM_GROUP and SDI_TAP_SHM_MODE (object_access.h) to the file `fd`; EINVAL when
// one of them is unusable.
SysError applyObjectAccess(int fd);

}  // namespace ovtx::system::ipc::v2::internal
