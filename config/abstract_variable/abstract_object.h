// The objects of the abstract variable tree.
//
// Any native data of the daemon can be seen as a tree of typed variables. An object of the tree is
// a short-lived view over that data and owns no tree: a container hands out an `ObjectFactory`,
// and calling it builds a fresh view on the child. Dropping a view leaves the data alone, and two
// views from one factory see each other's writes.
//
// There are fifteen varieties of object, each with its interface below, and each with its type
// record (`abstract_type.h`). Code never downcasts an object: it visits it (`visitors.h`), usually
// through `Converter<T>`:
//
//   std::unique_ptr<IAbstractObject> root = rootFactory();
//   auto structure = convertTo<IStruct>(*root);           // fails unless root is a struct
//   auto level = convertTo<IVariable<std::int32_t>>(structure->getChild("Level")());
//   level->set(level->get() + 1);
//
// How to declare a tree over native structs is told in `object_construction.h` and `declaration.h`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "config/abstract_variable/abstract_type.h"
#include "cpp_utils/exception_utils/exception_utils.h"
#include "cpp_utils/stream_io/stream_io.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

using abstract_type::v1::AbstractType;
using abstract_type::v1::ConstructableObjectMapType;
using abstract_type::v1::DataType;
using abstract_type::v1::EnumType;
using abstract_type::v1::FileType;
using abstract_type::v1::FunctionType;
using abstract_type::v1::MapType;
using abstract_type::v1::ReadOnlyType;
using abstract_type::v1::StructType;
using abstract_type::v1::UnionType;
using abstract_type::v1::VariableType;
using abstract_type::v1::VectorType;
using cpp_utils::stream_io::v1::IStreamReceiver;
using cpp_utils::stream_io::v1::IStreamSender;

struct IObjectVisitor;
struct IAbstractObject;
struct IReadOnly;

// Failures of the objects, their helpers and visitors. Indices outside a vector fail with
// std::out_of_range instead, so that callers can tell a missing element from other failures.
using AbstractVariableException = cpp_utils::exception_utils::v1::ExceptionTemplate<IAbstractObject>;

// Builds a fresh view. Copied freely; whatever it captures must outlive it.
using ObjectFactory = std::function<std::unique_ptr<IAbstractObject>()>;
// The same for a slot whose kind is known.
template <typename Interface>
using TypedFactory = std::function<std::unique_ptr<Interface>()>;
// Yields an object's type record.
template <typename Record>
using TypeFunction = std::function<std::shared_ptr<const Record>()>;

// The root of every object. An object is looked at only through a visitor.
struct IAbstractObject {
    virtual void accept(IObjectVisitor& visitor) = 0;
    virtual ~IAbstractObject() = default;
};

// The common base of the four leaves.
struct IBaseVariable : IAbstractObject {};

// A leaf: T is std::int32_t, std::int64_t, bool or std::string.
template <typename T>
struct IVariable : IBaseVariable {
    using ValueType = T;
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<VariableType<T>> getTypeFunction() const = 0;
    virtual void set(const T& value) = 0;
    virtual T get() const = 0;
};

// Named children.
struct IStruct : IAbstractObject {
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<StructType> getTypeFunction() const = 0;
    // Fails with "No such variable: <name>" for an unknown name.
    virtual ObjectFactory getChild(const std::string& name) = 0;
};

// Elements indexed from 0.
struct IVector : IAbstractObject {
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<VectorType> getTypeFunction() const = 0;
    virtual std::int32_t size() = 0;
    virtual void resize(std::int32_t size) = 0;
    virtual ObjectFactory get(const std::int32_t& index) = 0;
};

// Elements under keys: K is std::int32_t ("map") or std::string ("map_str").
template <typename K>
struct IMap : IAbstractObject {
    using KeyType = K;
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<MapType<K>> getTypeFunction() const = 0;
    virtual std::vector<K> ids() = 0;
    virtual ObjectFactory get(const K& id) = 0;
    virtual void remove(const K& id) = 0;
    virtual void add(const K& id) = 0;
};

// One element of a constructable map: its configuration, seen read-only, and its state.
using ConstructableElement = std::pair<TypedFactory<IReadOnly>, ObjectFactory>;

// Elements built by the map from a configuration, under ids that the map hands out.
struct IConstructableObjectMap : IAbstractObject {
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<ConstructableObjectMapType> getTypeFunction() const = 0;
    virtual std::vector<std::int32_t> ids() = 0;
    virtual ConstructableElement get(const std::int32_t& id) = 0;
    // A blank configuration object, to be filled and passed to `add`.
    virtual ObjectFactory newConfiguration() = 0;
    // Adds an element built from a copy of `configuration`; returns its new id.
    virtual std::int32_t add(IAbstractObject& configuration) = 0;
    virtual void add(std::int32_t id, IAbstractObject& configuration) = 0;
    virtual void remove(std::int32_t id) = 0;
    // True when an element's state can be reached without building an element first. When false,
    // unserialising the whole map builds a temporary element before it clears the map, so that
    // whatever the elements share survives the clearing and the state's shape is known.
    virtual bool knowsStateShape() = 0;
};

// Something to call: the parameter is an ordinary object that the caller fills before the call.
struct IFunction : IAbstractObject {
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<FunctionType> getTypeFunction() const = 0;
    virtual ObjectFactory newParameter() = 0;
    // Returns a factory of the result, which holds the result's storage alive.
    virtual ObjectFactory call(IAbstractObject& parameter) = 0;
};

// The content of a file object.
struct FileContent {
    std::string mimeType;
    std::vector<std::uint8_t> bytes;
    friend bool operator==(const FileContent&, const FileContent&) = default;
};

// A file: bytes with a MIME type, written whole or appended to, read whole or by position.
struct IFile : IAbstractObject {
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<FileType> getTypeFunction() const = 0;
    virtual void set(const std::string& mimeType, const std::uint8_t* bytes, std::size_t size) = 0;
    virtual void append(const std::uint8_t* bytes, std::size_t size) = 0;
    virtual FileContent get() = 0;
    // Copies up to `size` bytes from `position` on; returns how many, 0 at the end.
    virtual std::size_t read(std::uint8_t* buffer, std::size_t size, std::uint64_t position) = 0;
    virtual std::string mimeType() = 0;
};

// Bytes reached only as streams.
struct IData : IAbstractObject {
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<DataType> getTypeFunction() const = 0;
    virtual std::unique_ptr<IStreamSender> newWriter() = 0;
    virtual std::unique_ptr<IStreamReceiver> newReader() = 0;
};

// A wrapper that shows another object without letting generic writers reach it.
struct IReadOnly : IAbstractObject {
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<ReadOnlyType> getTypeFunction() const = 0;
    virtual ObjectFactory getUnderlying() = 0;
};

// A choice among names.
struct IEnum : IAbstractObject {
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<EnumType> getTypeFunction() const = 0;
    virtual std::string get() = 0;
    virtual void set(const std::string& name) = 0;
};

// The names and numbers of a native enum. Not an object of the tree.
struct IEnumDecl {
    virtual ~IEnumDecl() = default;
    // The values in declaration order.
    virtual const std::vector<std::int32_t>& values() const = 0;
    // Accepts a name or the decimal number of a value.
    virtual std::int32_t fromString(const std::string& text) const = 0;
    // Always gives the name.
    virtual std::string toString(std::int32_t value) const = 0;
};

// One of several named alternatives.
struct IUnion : IAbstractObject {
    void accept(IObjectVisitor& visitor) override;
    virtual TypeFunction<UnionType> getTypeFunction() const = 0;
    virtual std::string getCurrentType() = 0;
    virtual void setCurrentType(const std::string& name) = 0;
    virtual ObjectFactory getValue(const std::string& name) = 0;
};

// One operation for each kind of object, in this fixed order.
struct IObjectVisitor {
    virtual void visit(IUnion& object) = 0;
    virtual void visit(IEnum& object) = 0;
    virtual void visit(IReadOnly& object) = 0;
    virtual void visit(IData& object) = 0;
    virtual void visit(IFile& object) = 0;
    virtual void visit(IConstructableObjectMap& object) = 0;
    virtual void visit(IMap<std::string>& object) = 0;
    virtual void visit(IMap<std::int32_t>& object) = 0;
    virtual void visit(IVector& object) = 0;
    virtual void visit(IFunction& object) = 0;
    virtual void visit(IVariable<bool>& object) = 0;
    virtual void visit(IVariable<std::int64_t>& object) = 0;
    virtual void visit(IVariable<std::int32_t>& object) = 0;
    virtual void visit(IVariable<std::string>& object) = 0;
    virtual void visit(IStruct& object) = 0;
    virtual ~IObjectVisitor() = default;
};

template <typename T>
inline void IVariable<T>::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}
template <typename K>
inline void IMap<K>::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}
inline void IStruct::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}
inline void IVector::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}
inline void IConstructableObjectMap::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}
inline void IFunction::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}
inline void IFile::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}
inline void IData::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}
inline void IReadOnly::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}
inline void IEnum::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}
inline void IUnion::accept(IObjectVisitor& visitor) {
    visitor.visit(*this);
}

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
