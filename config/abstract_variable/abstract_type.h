// Type records of the abstract variables.
//
// Every object of the variable tree has a type record, an `AbstractType`: a value type holding
// one of fifteen alternatives, one per variety of object. Copying an `AbstractType` copies the
// whole description; nested descriptions are held through `Box`, an owning pointer with value
// semantics. Records are built by nesting:
//
//   AbstractType point = StructType{{{"x", VariableType<std::int32_t>{}},
//                                    {"tags", VectorType{VariableType<std::string>{}}}}};
//   const StructType& record = point.get<StructType>();   // throws under another tag
//   point.tag();                                          // 4
//   varietyName(point);                                   // "struct"
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "cpp_utils/exception_utils/exception_utils.h"

namespace ovtx::config::abstract_variable::abstract_type::v1 {

class AbstractType;

// Failures of type records and of their JSON form.
using AbstractTypeException = cpp_utils::exception_utils::v1::ExceptionTemplate<AbstractType>;

// An owning pointer that copies and compares what it points at.
template <typename T>
class Box {
  public:
    Box() : m_value(std::make_unique<T>()) {}
    template <typename U>
    requires(std::is_constructible_v<T, U&&> && !std::is_same_v<std::remove_cvref_t<U>, Box>) Box(U&& value)
        : m_value(std::make_unique<T>(std::forward<U>(value))) {}  // NOLINT: implicit by design
    Box(const Box& other) : m_value(std::make_unique<T>(*other.m_value)) {}
    Box(Box&& other) noexcept = default;
    Box& operator=(const Box& other) {
        if (this != &other) {
            m_value = std::make_unique<T>(*other.m_value);
        }
        return *this;
    }
    Box& operator=(Box&& other) noexcept = default;
    ~Box() = default;

    T& operator*() { return *m_value; }
    const T& operator*() const { return *m_value; }
    T* operator->() { return m_value.get(); }
    const T* operator->() const { return m_value.get(); }

    friend bool operator==(const Box& a, const Box& b) { return *a.m_value == *b.m_value; }

  private:
    std::unique_ptr<T> m_value;  // never null, except after a move
};

// A named description: a struct's child or a union's alternative.
struct NamedType {
    std::string name;
    Box<AbstractType> type;
    friend bool operator==(const NamedType&, const NamedType&) = default;
};

// Leaves: T is std::int32_t, std::int64_t, bool or std::string.
template <typename T>
struct VariableType {
    friend bool operator==(const VariableType&, const VariableType&) = default;
};

struct StructType {
    std::vector<NamedType> children;
    friend bool operator==(const StructType&, const StructType&) = default;
};

struct VectorType {
    Box<AbstractType> element;
    friend bool operator==(const VectorType&, const VectorType&) = default;
};

// K is std::int32_t ("map") or std::string ("map_str").
template <typename K>
struct MapType {
    Box<AbstractType> element;
    friend bool operator==(const MapType&, const MapType&) = default;
};

struct ConstructableObjectMapType {
    Box<AbstractType> configuration;
    Box<AbstractType> state;
    friend bool operator==(const ConstructableObjectMapType&, const ConstructableObjectMapType&) = default;
};

struct FunctionType {
    Box<AbstractType> parameter;
    Box<AbstractType> returnType;
    friend bool operator==(const FunctionType&, const FunctionType&) = default;
};

struct FileType {
    friend bool operator==(const FileType&, const FileType&) = default;
};

struct DataType {
    friend bool operator==(const DataType&, const DataType&) = default;
};

struct ReadOnlyType {
    Box<AbstractType> underlying;
    friend bool operator==(const ReadOnlyType&, const ReadOnlyType&) = default;
};

struct EnumType {
    std::vector<std::string> choices;
    friend bool operator==(const EnumType&, const EnumType&) = default;
};

// With `full` the union holds a value for every alternative at once and the current alternative
// is only a selection; without it only the current alternative has a value.
struct UnionType {
    std::vector<NamedType> valueTypes;
    bool full = false;
    friend bool operator==(const UnionType&, const UnionType&) = default;
};

// The fifteen alternatives, in tag order.
using TypeVariant = std::variant<VariableType<std::int32_t>, VariableType<std::int64_t>, VariableType<bool>,
                                 VariableType<std::string>, StructType, VectorType, MapType<std::int32_t>,
                                 MapType<std::string>, ConstructableObjectMapType, FunctionType, FileType,
                                 DataType, ReadOnlyType, EnumType, UnionType>;

// Tags of the alternatives, for switches over `AbstractType::tag()`.
namespace tag {
inline constexpr std::size_t kInt32 = 0;
inline constexpr std::size_t kInt64 = 1;
inline constexpr std::size_t kBool = 2;
inline constexpr std::size_t kString = 3;
inline constexpr std::size_t kStruct = 4;
inline constexpr std::size_t kVector = 5;
inline constexpr std::size_t kMap = 6;
inline constexpr std::size_t kMapStr = 7;
inline constexpr std::size_t kConstructableObjectMap = 8;
inline constexpr std::size_t kFunction = 9;
inline constexpr std::size_t kFile = 10;
inline constexpr std::size_t kData = 11;
inline constexpr std::size_t kReadOnly = 12;
inline constexpr std::size_t kEnum = 13;
inline constexpr std::size_t kUnion = 14;
}  // namespace tag

template <typename Record, typename Variant = TypeVariant>
inline constexpr bool kIsRecord = false;
template <typename Record, typename... Records>
inline constexpr bool kIsRecord<Record, std::variant<Records...>> = (std::is_same_v<Record, Records> || ...);

// Raised when an alternative is read under another tag.
void throwWrongAlternative();

// The type record of one object: a tagged union of the fifteen records.
class AbstractType {
  public:
    AbstractType() = default;  // an "int32"
    template <typename Record>
    requires kIsRecord<std::remove_cvref_t<Record>> AbstractType(Record&& record)
        : m_value(std::forward<Record>(record)) {}  // NOLINT: implicit by design

    // The index of the alternative held, 0 to 14.
    std::size_t tag() const { return m_value.index(); }

    template <typename Record>
    bool is() const {
        return std::holds_alternative<Record>(m_value);
    }

    // The alternative held; fails with "cannot convert union to given type" under another tag.
    template <typename Record>
    const Record& get() const {
        const Record* record = std::get_if<Record>(&m_value);
        if (record == nullptr) {
            throwWrongAlternative();
        }
        return *record;
    }
    template <typename Record>
    Record& get() {
        return const_cast<Record&>(std::as_const(*this).get<Record>());
    }

    const TypeVariant& variant() const { return m_value; }

    friend bool operator==(const AbstractType&, const AbstractType&) = default;

  private:
    TypeVariant m_value;
};

// The variety name of a tag ("int32" ... "union"); "internal assertion failure" outside 0 to 14.
const std::string& varietyName(std::size_t tag);
inline const std::string& varietyName(const AbstractType& type) {
    return varietyName(type.tag());
}

// The tag of a record type, known at compile time: tagOf<StructType> is 4.
template <typename Record, typename Variant = TypeVariant>
struct TagOf;
template <typename Record, typename... Records>
struct TagOf<Record, std::variant<Records...>> {
    static constexpr std::size_t value = [] {
        std::size_t index = 0;
        bool found = false;
        ((found = found || std::is_same_v<Record, Records>, index += found ? 0 : 1), ...);
        return index;
    }();
};
template <typename Record>
inline constexpr std::size_t tagOf = TagOf<Record>::value;

}  // namespace ovtx::config::abstract_variable::abstract_type::v1
