// A base for classes that own something which must not be duplicated (a handle, a mapping).
//
// Deriving from `NonCopyable` removes the copy constructor and the copy assignment, so that an
// accidental copy is a compile error rather than a double release:
//
//   class SharedBlock : public NonCopyable { ... };
#pragma once

namespace ovtx::cpp_utils::non_copyable::v1 {

class NonCopyable {
  public:
    NonCopyable(const NonCopyable&) = delete;
    NonCopyable& operator=(const NonCopyable&) = delete;

  protected:
    NonCopyable() = default;
    ~NonCopyable() = default;
};

}  // namespace ovtx::cpp_utils::non_copyable::v1
