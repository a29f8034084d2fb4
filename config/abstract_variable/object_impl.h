// The implementations of the abstract objects: rows of function objects.
//
// Every `...Impl` class holds one stored function per operation of its interface, filled at
// construction in the order of the interface and never changed; its virtual functions only
// forward. A native struct, field or container is adapted by closures that capture pointers to the
// real data, so no subclass per user type exists:
//
//   auto levels = std::make_shared<std::vector<std::int32_t>>(4);
//   VectorImpl view(
//       [levels] { return static_cast<std::int32_t>(levels->size()); },
//       [levels](std::int32_t size) { levels->resize(size); return static_cast<std::int32_t>(levels->size());
//       }, [levels](std::int32_t index) -> ObjectFactory { return variableOf(levels, &levels->at(index)); },
//       constantType(VectorType{VariableType<std::int32_t>{}}));
//
// Shorter ways to declare whole trees over native structs are in `declaration.h`.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "config/abstract_variable/abstract_object.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

// A type function that always yields the same record.
template <typename Record>
TypeFunction<Record> constantType(Record record) {
    auto shared = std::make_shared<const Record>(std::move(record));
    return [shared] { return shared; };
}

// A struct over a table of (name, factory), built once and shared by every copy of the view.
class CDynStruct : public IStruct {
  public:
    using Child = std::tuple<std::string, ObjectFactory>;
    using Children = std::vector<Child>;

    // Children are listed in the order given; `type` yields the struct's record.
    CDynStruct(Children children, TypeFunction<StructType> type);
    // As above, the record being made once, on first demand, from the children's own records.
    explicit CDynStruct(Children children);

    TypeFunction<StructType> getTypeFunction() const override { return m_type; }
    ObjectFactory getChild(const std::string& name) override;

    // A factory of views that share this table.
    ObjectFactory factory() const;

  private:
    std::shared_ptr<const std::map<std::string, std::size_t>> m_index;
    std::shared_ptr<const Children> m_children;
    TypeFunction<StructType> m_type;
};

// A vector from its size, resize, element and type functions. The resize function returns the
// size it reached; any other size than the one asked for fails with "Cannot resize vector".
class VectorImpl : public IVector {
  public:
    using SizeFunction = std::function<std::int32_t()>;
    using ResizeFunction = std::function<std::int32_t(std::int32_t)>;
    using ElementFunction = std::function<ObjectFactory(std::int32_t)>;

    VectorImpl(SizeFunction size, ResizeFunction resize, ElementFunction element,
               TypeFunction<VectorType> type)
        : m_size(std::move(size)),
          m_resize(std::move(resize)),
          m_element(std::move(element)),
          m_type(std::move(type)) {}

    TypeFunction<VectorType> getTypeFunction() const override { return m_type; }
    std::int32_t size() override { return m_size(); }
    void resize(std::int32_t size) override;
    ObjectFactory get(const std::int32_t& index) override { return m_element(index); }

  private:
    SizeFunction m_size;
    ResizeFunction m_resize;
    ElementFunction m_element;
    TypeFunction<VectorType> m_type;
};

// A map from its ids, element, remove, add and type functions.
template <typename K>
class Map : public IMap<K> {
  public:
    using IdsFunction = std::function<std::vector<K>()>;
    using ElementFunction = std::function<ObjectFactory(const K&)>;
    using KeyFunction = std::function<void(const K&)>;

    Map(IdsFunction ids, ElementFunction element, KeyFunction remove, KeyFunction add,
        TypeFunction<MapType<K>> type)
        : m_ids(std::move(ids)),
          m_element(std::move(element)),
          m_remove(std::move(remove)),
          m_add(std::move(add)),
          m_type(std::move(type)) {}

    TypeFunction<MapType<K>> getTypeFunction() const override { return m_type; }
    std::vector<K> ids() override { return m_ids(); }
    ObjectFactory get(const K& id) override { return m_element(id); }
    void remove(const K& id) override { m_remove(id); }
    void add(const K& id) override { m_add(id); }

  private:
    IdsFunction m_ids;
    ElementFunction m_element;
    KeyFunction m_remove;
    KeyFunction m_add;
    TypeFunction<MapType<K>> m_type;
};

// A union from its current-type, set-current-type, value and type functions.
class UnionImpl : public IUnion {
  public:
    using GetFunction = std::function<std::string()>;
    using SetFunction = std::function<void(const std::string&)>;
    using ValueFunction = std::function<ObjectFactory(const std::string&)>;

    UnionImpl(GetFunction current, SetFunction setCurrent, ValueFunction value, TypeFunction<UnionType> type)
        : m_current(std::move(current)),
          m_setCurrent(std::move(setCurrent)),
          m_value(std::move(value)),
          m_type(std::move(type)) {}

    TypeFunction<UnionType> getTypeFunction() const override { return m_type; }
    std::string getCurrentType() override { return m_current(); }
    void setCurrentType(const std::string& name) override { m_setCurrent(name); }
    ObjectFactory getValue(const std::string& name) override { return m_value(name); }

  private:
    GetFunction m_current;
    SetFunction m_setCurrent;
    ValueFunction m_value;
    TypeFunction<UnionType> m_type;
};

// A constructable map from its seven functions and the fixed answer of `knowsStateShape`.
class CConstructableObjectMap : public IConstructableObjectMap {
  public:
    using IdsFunction = std::function<std::vector<std::int32_t>()>;
    using ElementFunction = std::function<ConstructableElement(std::int32_t)>;
    using ConfigurationFunction = std::function<ObjectFactory()>;
    using AddWithIdFunction = std::function<void(std::int32_t, IAbstractObject&)>;
    using AddFunction = std::function<std::int32_t(IAbstractObject&)>;
    using RemoveFunction = std::function<void(std::int32_t)>;

    CConstructableObjectMap(IdsFunction ids, ElementFunction element, ConfigurationFunction newConfiguration,
                            AddWithIdFunction addWithId, AddFunction add, RemoveFunction remove,
                            TypeFunction<ConstructableObjectMapType> type, bool knowsStateShape)
        : m_ids(std::move(ids)),
          m_element(std::move(element)),
          m_newConfiguration(std::move(newConfiguration)),
          m_addWithId(std::move(addWithId)),
          m_add(std::move(add)),
          m_remove(std::move(remove)),
          m_type(std::move(type)),
          m_knowsStateShape(knowsStateShape) {}

    TypeFunction<ConstructableObjectMapType> getTypeFunction() const override { return m_type; }
    std::vector<std::int32_t> ids() override { return m_ids(); }
    ConstructableElement get(const std::int32_t& id) override { return m_element(id); }
    ObjectFactory newConfiguration() override { return m_newConfiguration(); }
    std::int32_t add(IAbstractObject& configuration) override { return m_add(configuration); }
    void add(std::int32_t id, IAbstractObject& configuration) override { m_addWithId(id, configuration); }
    void remove(std::int32_t id) override { m_remove(id); }
    bool knowsStateShape() override { return m_knowsStateShape; }

  private:
    IdsFunction m_ids;
    ElementFunction m_element;
    ConfigurationFunction m_newConfiguration;
    AddWithIdFunction m_addWithId;
    AddFunction m_add;
    RemoveFunction m_remove;
    TypeFunction<ConstructableObjectMapType> m_type;
    bool m_knowsStateShape;
};

// A function from its parameter factory, call and type functions.
class IFunctionImpl : public IFunction {
  public:
    using ParameterFunction = std::function<ObjectFactory()>;
    using CallFunction = std::function<ObjectFactory(IAbstractObject&)>;

    IFunctionImpl(ParameterFunction newParameter, CallFunction call, TypeFunction<FunctionType> type)
        : m_newParameter(std::move(newParameter)), m_call(std::move(call)), m_type(std::move(type)) {}

    TypeFunction<FunctionType> getTypeFunction() const override { return m_type; }
    ObjectFactory newParameter() override { return m_newParameter(); }
    ObjectFactory call(IAbstractObject& parameter) override { return m_call(parameter); }

  private:
    ParameterFunction m_newParameter;
    CallFunction m_call;
    TypeFunction<FunctionType> m_type;
};

// A file from its set, append, get, read, MIME type and type functions.
class FileImpl : public IFile {
  public:
    using SetFunction = std::function<void(const std::string&, const std::uint8_t*, std::size_t)>;
    using AppendFunction = std::function<void(const std::uint8_t*, std::size_t)>;
    using GetFunction = std::function<FileContent()>;
    using ReadFunction = std::function<std::size_t(std::uint8_t*, std::size_t, std::uint64_t)>;
    using MimeTypeFunction = std::function<std::string()>;

    FileImpl(SetFunction set, AppendFunction append, GetFunction get, ReadFunction read,
             MimeTypeFunction mimeType, TypeFunction<FileType> type)
        : m_set(std::move(set)),
          m_append(std::move(append)),
          m_get(std::move(get)),
          m_read(std::move(read)),
          m_mimeType(std::move(mimeType)),
          m_type(std::move(type)) {}

    // A file over a `FileContent` held by the caller.
    static std::unique_ptr<IFile> over(std::shared_ptr<FileContent> content);

    TypeFunction<FileType> getTypeFunction() const override { return m_type; }
    void set(const std::string& mimeType, const std::uint8_t* bytes, std::size_t size) override {
        m_set(mimeType, bytes, size);
    }
    void append(const std::uint8_t* bytes, std::size_t size) override { m_append(bytes, size); }
    FileContent get() override { return m_get(); }
    std::size_t read(std::uint8_t* buffer, std::size_t size, std::uint64_t position) override {
        return m_read(buffer, size, position);
    }
    std::string mimeType() override { return m_mimeType(); }

  private:
    SetFunction m_set;
    AppendFunction m_append;
    GetFunction m_get;
    ReadFunction m_read;
    MimeTypeFunction m_mimeType;
    TypeFunction<FileType> m_type;
};

// A read-only wrapper from the factory of the wrapped object and a type function.
class ReadOnlyImpl : public IReadOnly {
  public:
    ReadOnlyImpl(std::function<ObjectFactory()> underlying, TypeFunction<ReadOnlyType> type)
        : m_underlying(std::move(underlying)), m_type(std::move(type)) {}

    TypeFunction<ReadOnlyType> getTypeFunction() const override { return m_type; }
    ObjectFactory getUnderlying() override { return m_underlying(); }

  private:
    std::function<ObjectFactory()> m_underlying;
    TypeFunction<ReadOnlyType> m_type;
};

using EnumDeclFactory = std::function<std::shared_ptr<const IEnumDecl>()>;

// An enum over an int32 variable and a declaration of names: `get` gives the name of the number,
// `set` stores the number of a name (or of a decimal text).
class EnumVarDeclImpl : public IEnum {
  public:
    EnumVarDeclImpl(TypedFactory<IVariable<std::int32_t>> variable, EnumDeclFactory decl,
                    TypeFunction<EnumType> type)
        : m_variable(std::move(variable)), m_decl(std::move(decl)), m_type(std::move(type)) {}

    TypeFunction<EnumType> getTypeFunction() const override { return m_type; }
    std::string get() override { return m_decl()->toString(m_variable()->get()); }
    void set(const std::string& name) override { m_variable()->set(m_decl()->fromString(name)); }

  private:
    TypedFactory<IVariable<std::int32_t>> m_variable;
    EnumDeclFactory m_decl;
    TypeFunction<EnumType> m_type;
};

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
