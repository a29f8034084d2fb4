// A bounds-checked, read-only view on a buffer that came from outside the program.
//
// Parsers of packets that arrive with the signal (ancillary packets, caption data) read every
// field through a `SafeArray`, so that a packet whose own counts point past its end fails with an
// exception instead of reading foreign memory. The failure is a `SafeArrayException<T>` of the
// program's exception family:
//
//   SafeArray<unsigned short> words(packet.words, packet.wordCount);
//   unsigned flags = words[4] & 0xFF;   // 3 words: "Trying access offset 4 in buffer of size 3\n"
#pragma once

#include <cstddef>
#include <cstdio>

#include "cpp_utils/exception_utils/exception_utils.h"

namespace ovtx::cpp_utils::cpp_tools::v1 {

template <typename T>
class SafeArray;

// Tagged with the view's own type, so that a catcher can tell a bound failure from others.
template <typename T>
using SafeArrayException = exception_utils::v1::ExceptionTemplate<SafeArray<T>>;

template <typename T>
class SafeArray {
  public:
    SafeArray(const T* data, std::size_t size) : m_data(data), m_size(size) {}

    std::size_t size() const { return m_size; }

    // Throws SafeArrayException<T> for any offset outside the buffer, negative ones included.
    const T& operator[](long long offset) const {
        if (offset < 0 || static_cast<unsigned long long>(offset) >= m_size || m_data == nullptr) {
            char text[96];
            std::snprintf(text, sizeof text, "Trying access offset %d in buffer of size %d\n",
                          static_cast<int>(offset), static_cast<int>(m_size));
            throw SafeArrayException<T>(text);
        }
        return m_data[offset];
    }

  private:
    const T* m_data;
    std::size_t m_size;
};

}  // namespace ovtx::cpp_utils::cpp_tools::v1
