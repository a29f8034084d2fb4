// The program's own exception family.
//
// `OrvantaException` is the root of every failure the daemon raises itself. It is a
// `std::runtime_error`, so the top-level guards that catch standard exceptions also catch it.
// `ExceptionTemplate<Tag>` marks a failure with the class that raises it, so that a catcher can
// tell a `File` failure from an `SdiTap` failure by type while the text stays the system's own:
//
//   struct File;
//   using FileException = ExceptionTemplate<File>;
//   throw FileException("Could not open " + path);
#pragma once

#include <stdexcept>
#include <string>

namespace ovtx::cpp_utils::exception_utils::v1 {

class OrvantaException : public std::runtime_error {
  public:
    explicit OrvantaException(const std::string& text) : std::runtime_error(text) {}
    explicit OrvantaException(const char* text) : std::runtime_error(text) {}
};

// Tag is the raising class; it only needs to be declared.
template <typename Tag>
class ExceptionTemplate : public OrvantaException {
  public:
    using OrvantaException::OrvantaException;
};

}  // namespace ovtx::cpp_utils::exception_utils::v1
