// Who may use the named objects that this process creates: their group and mode.
//
// By default an object gets mode 0666 less the umask and the creator's group, so that a consumer
// running as another user sees the objects but can't open them (every holder needs write access).
// Two environment variables, read once per process, share a run with a group instead:
//
//   SDI_TAP_SHM_GROUP=video      group name or number given to every object this process creates
//   SDI_TAP_SHM_MODE=0660        permission bits in octal (0 to 0777), applied exactly, not masked
//
// A daemon checks them at start-up and refuses to run on a value it can't use:
//
//   if (std::optional<std::string> problem = objectAccessProblem()) {
//       std::cerr << *problem << std::endl;   // "SDI_TAP_SHM_GROUP: no group named 'vidoe'"
//       return 1;
//   }
//
// With an unusable value set, creating an object fails with EINVAL. Nothing here throws.
#pragma once

#include <optional>
#include <string>

namespace ovtx::system::ipc::v2 {

inline constexpr char kObjectGroupVariable[] = "SDI_TAP_SHM_GROUP";
inline constexpr char kObjectModeVariable[] = "SDI_TAP_SHM_MODE";

// A text naming the variable and what is wrong with its value; nothing when both are usable
// (or unset).
std::optional<std::string> objectAccessProblem();

}  // namespace ovtx::system::ipc::v2
