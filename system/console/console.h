// What the log's console output needs to know about the terminal.
//
//   const bool colours = ovtx::system::console::v1::standardErrorIsTerminal();
#pragma once

namespace ovtx::system::console::v1 {

// True when the standard error stream goes to a terminal, where colour escapes make sense.
bool standardErrorIsTerminal();

}  // namespace ovtx::system::console::v1
