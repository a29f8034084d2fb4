// The construction helpers: how a developer builds objects of the abstract variable tree.
//
// A leaf over a native field passes closures that read and write the field; a struct is a table
// of (name, factory) wrapped in a `CDynStruct`; an enum joins an int32 variable to the names of
// the native enum:
//
//   struct Status { std::int32_t level = 0; std::string name; Mode mode = Mode::Idle; };
//   auto status = std::make_shared<Status>();
//   auto modes = std::shared_ptr<const IEnumDecl>(GetEnumDecl<Mode>({Mode::Idle, Mode::Run}, modeName));
//   CDynStruct view({{"Level", variableOf(status, &status->level)},
//                    {"Name", variableOf(status, &status->name)},
//                    {"Mode", enumOf(status, &status->mode, modes)}});
//   ObjectFactory root = view.factory();
//
// `newInstance` builds free-standing objects with storage of their own from a type record, which
// is how variables that exist only in the service (heap instances, function parameters) live.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "config/abstract_variable/object_impl.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

// The empty value of a function with no parameter or no result; seen as a struct with no child.
struct Void {
    friend bool operator==(const Void&, const Void&) = default;
};

// The shared record of a leaf type.
template <typename T>
TypeFunction<VariableType<T>> leafType() {
    static const auto kRecord = std::make_shared<const VariableType<T>>();
    return [] { return kRecord; };
}

// A leaf over accessors. T is std::int32_t, std::int64_t, bool or std::string.
template <typename T>
std::unique_ptr<IVariable<T>> GetVariable_Impl(std::function<T()> get, std::function<void(const T&)> set,
                                               TypeFunction<VariableType<T>> type) {
    class Variable : public IVariable<T> {
      public:
        Variable(std::function<T()> get, std::function<void(const T&)> set,
                 TypeFunction<VariableType<T>> type)
            : m_get(std::move(get)), m_set(std::move(set)), m_type(std::move(type)) {}
        TypeFunction<VariableType<T>> getTypeFunction() const override { return m_type; }
        void set(const T& value) override { m_set(value); }
        T get() const override { return m_get(); }

      private:
        std::function<T()> m_get;
        std::function<void(const T&)> m_set;
        TypeFunction<VariableType<T>> m_type;
    };
    return std::make_unique<Variable>(std::move(get), std::move(set), std::move(type));
}

// A string leaf that holds its value alive in its closures.
template <typename T>
requires std::is_same_v<T, std::string> std::unique_ptr<IVariable<T>> NewVariable_Impl(
    std::shared_ptr<T> value) {
    return GetVariable_Impl<T>([value] { return *value; }, [value](const T& text) { *value = text; },
                               leafType<T>());
}

// A factory of leaf views over one native field. `owner` keeps the field's storage alive; pass an
// empty pointer for storage that outlives every view (the daemon's root state).
template <typename T>
ObjectFactory variableOf(std::shared_ptr<void> owner, T* field) {
    std::shared_ptr<T> shared(std::move(owner), field);
    return [shared]() -> std::unique_ptr<IAbstractObject> {
        return GetVariable_Impl<T>([shared] { return *shared; },
                                   [shared](const T& value) { *shared = value; }, leafType<T>());
    };
}

// Builds the declaration of a native enum: `fromString` accepts both a value's name and its
// decimal number, `toString` always gives the name.
template <typename E, typename NameFn>
std::unique_ptr<IEnumDecl> GetEnumDecl(const std::vector<E>& values, NameFn nameOf) {
    class EnumDecl : public IEnumDecl {
      public:
        const std::vector<std::int32_t>& values() const override { return m_values; }
        std::int32_t fromString(const std::string& text) const override {
            auto found = m_byName.find(text);
            if (found == m_byName.end()) {
                throw AbstractVariableException("No such enum value: [" + text + "]");
            }
            return found->second;
        }
        std::string toString(std::int32_t value) const override {
            auto found = m_byValue.find(value);
            if (found == m_byValue.end()) {
                throw AbstractVariableException("No such enum value: [" + std::to_string(value) + "]");
            }
            return found->second;
        }

        std::vector<std::int32_t> m_values;
        std::map<std::string, std::int32_t> m_byName;
        std::map<std::int32_t, std::string> m_byValue;
    };
    auto decl = std::make_unique<EnumDecl>();
    for (const E& value : values) {
        const auto number = static_cast<std::int32_t>(value);
        const std::string name = nameOf(value);
        decl->m_values.push_back(number);
        decl->m_byName[name] = number;
        decl->m_byName[std::to_string(number)] = number;
        decl->m_byValue[number] = name;
    }
    return decl;
}

// The record of an enum: the names of its values in declaration order.
EnumType enumTypeOf(const IEnumDecl& decl);

// The int32 variable behind an enum view: the number of a native enum field.
template <typename E>
TypedFactory<IVariable<std::int32_t>> enumNumberOf(std::shared_ptr<E> field) {
    return [field] {
        return GetVariable_Impl<std::int32_t>(
            [field] { return static_cast<std::int32_t>(*field); },
            [field](const std::int32_t& value) { *field = static_cast<E>(value); }, leafType<std::int32_t>());
    };
}

// A factory of enum views over one native enum field (any enum whose values fit in int32).
// `type` is the enum's record, when the caller already holds it.
template <typename E>
ObjectFactory enumOf(std::shared_ptr<void> owner, E* field, std::shared_ptr<const IEnumDecl> decl,
                     TypeFunction<EnumType> type = nullptr) {
    TypedFactory<IVariable<std::int32_t>> number = enumNumberOf(std::shared_ptr<E>(std::move(owner), field));
    if (!type) {
        type = constantType(enumTypeOf(*decl));
    }
    EnumDeclFactory declFactory = [decl] { return decl; };
    return [number, declFactory, type]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<EnumVarDeclImpl>(number, declFactory, type);
    };
}

// The keys of a native map, in its order.
template <typename MapContainer>
std::vector<typename MapContainer::key_type> keysOf(const MapContainer& map) {
    std::vector<typename MapContainer::key_type> keys;
    keys.reserve(map.size());
    for (const auto& entry : map) {
        keys.push_back(entry.first);
    }
    return keys;
}

// The entry of a native map under `id`; fails with "such id does not exist" when absent.
template <typename MapContainer>
auto findId(MapContainer& map, const typename MapContainer::key_type& id) {
    auto found = map.find(id);
    if (found == map.end()) {
        throw AbstractVariableException("such id does not exist");
    }
    return found;
}

// A struct from one function mapping a child's name to its factory.
std::unique_ptr<IStruct> newStruct(std::function<ObjectFactory(const std::string&)> child,
                                   TypeFunction<StructType> type);

// An enum from string accessors.
std::unique_ptr<IEnum> newEnumVar(std::function<std::string()> get,
                                  std::function<void(const std::string&)> set, TypeFunction<EnumType> type);

// A data object from its writer and reader factories.
std::unique_ptr<IData> newData(std::function<std::unique_ptr<IStreamSender>()> newWriter,
                               std::function<std::unique_ptr<IStreamReceiver>()> newReader,
                               TypeFunction<DataType> type);

// A data object over a byte vector held by the caller. A writer empties the vector when it is made
// and appends what it is sent; a reader delivers the bytes as they were when it was made.
std::unique_ptr<IData> dataOver(std::shared_ptr<std::vector<std::uint8_t>> bytes);

// Builds a free-standing object, with storage of its own, for a type record; every call of the
// returned factory gives a new view on that storage. Every variety but "data" is supported.
ObjectFactory newInstance(const AbstractType& type);

// A free-standing vector whose elements it owns.
ObjectFactory newVectorInstance(const VectorType& type);

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
