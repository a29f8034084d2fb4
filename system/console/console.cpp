#include "system/console/console.h"

#include <unistd.h>

namespace ovtx::system::console::v1 {

bool standardErrorIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

}  // namespace ovtx::system::console::v1
