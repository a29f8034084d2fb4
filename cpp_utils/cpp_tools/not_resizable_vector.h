// A vector whose size is fixed when it is built.
//
// Native data exposed as a fixed-length list (eight audio pairs, four quadrants) is held in a
// `not_resizable_vector`, so that a generic resize of its view fails instead of reshaping it:
//
//   not_resizable_vector<int> pairs(8);
//   pairs.resize(8);  // fine, nothing changes
//   pairs.resize(9);  // throws "resize is not allowed"
#pragma once

#include <cstddef>
#include <stdexcept>
#include <vector>

#include "cpp_utils/exception_utils/exception_utils.h"

namespace ovtx::cpp_utils::cpp_tools::v1 {

struct NotResizableVectorTag;
using NotResizableVectorException = exception_utils::v1::ExceptionTemplate<NotResizableVectorTag>;

template <typename T>
class not_resizable_vector {
  public:
    using value_type = T;
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    not_resizable_vector() = default;
    explicit not_resizable_vector(std::size_t size) : m_items(size) {}
    not_resizable_vector(std::initializer_list<T> items) : m_items(items) {}

    std::size_t size() const { return m_items.size(); }
    // Accepts only the size the vector already has.
    void resize(std::size_t size) {
        if (size != m_items.size()) {
            throw NotResizableVectorException("resize is not allowed");
        }
    }

    T& operator[](std::size_t index) { return m_items[index]; }
    const T& operator[](std::size_t index) const { return m_items[index]; }
    T& at(std::size_t index) { return m_items.at(index); }
    const T& at(std::size_t index) const { return m_items.at(index); }
    iterator begin() { return m_items.begin(); }
    iterator end() { return m_items.end(); }
    const_iterator begin() const { return m_items.begin(); }
    const_iterator end() const { return m_items.end(); }

    friend bool operator==(const not_resizable_vector&, const not_resizable_vector&) = default;

  private:
    std::vector<T> m_items;
};

}  // namespace ovtx::cpp_utils::cpp_tools::v1
