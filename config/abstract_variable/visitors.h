// Visitors over the abstract objects, the typed conversion and the deep copy.
//
// Objects are only ever looked at through an `IObjectVisitor`. A one-kind operation derives from
// `TypeSpecificCommand` (every kind it does not override fails with "Operation not supported").
// Reaching a concrete interface goes through `Converter<T>`, or more simply `convertTo<T>`, which
// also keeps alive the inner view that a read-only wrapper was looked through to:
//
//   auto level = convertTo<IVariable<std::int32_t>>(factory, /*lookThroughReadOnly=*/true);
//   level->set(3);
//
//   ValueRecopier copy(*target, type);   // deep copy, governed by the type record
//   source->accept(copy);
//
//   getTypeString(object.get());         // "map_str", "vector", ...
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "config/abstract_variable/abstract_object.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

// A visitor for a few kinds: every operation fails with "Operation not supported".
struct TypeSpecificCommand : IObjectVisitor {
    void visit(IUnion& object) override;
    void visit(IEnum& object) override;
    void visit(IReadOnly& object) override;
    void visit(IData& object) override;
    void visit(IFile& object) override;
    void visit(IConstructableObjectMap& object) override;
    void visit(IMap<std::string>& object) override;
    void visit(IMap<std::int32_t>& object) override;
    void visit(IVector& object) override;
    void visit(IFunction& object) override;
    void visit(IVariable<bool>& object) override;
    void visit(IVariable<std::int64_t>& object) override;
    void visit(IVariable<std::int32_t>& object) override;
    void visit(IVariable<std::string>& object) override;
    void visit(IStruct& object) override;
};

// The base of `Converter<T>`: every kind fails with "Cannot convert variable", except a read-only
// wrapper, which is looked through when the flag allows it and fails with "Cannot convert read
// only variable" otherwise. Views built while looking through are kept until the converter dies.
class BaseConverter : public IObjectVisitor {
  public:
    explicit BaseConverter(bool lookThroughReadOnly) : m_lookThroughReadOnly(lookThroughReadOnly) {}

    void visit(IUnion& object) override;
    void visit(IEnum& object) override;
    void visit(IReadOnly& object) override;
    void visit(IData& object) override;
    void visit(IFile& object) override;
    void visit(IConstructableObjectMap& object) override;
    void visit(IMap<std::string>& object) override;
    void visit(IMap<std::int32_t>& object) override;
    void visit(IVector& object) override;
    void visit(IFunction& object) override;
    void visit(IVariable<bool>& object) override;
    void visit(IVariable<std::int64_t>& object) override;
    void visit(IVariable<std::int32_t>& object) override;
    void visit(IVariable<std::string>& object) override;
    void visit(IStruct& object) override;

    // Hands over the views kept alive by look-throughs.
    std::vector<std::unique_ptr<IAbstractObject>> takeKeptViews() { return std::move(m_keptViews); }

  private:
    bool m_lookThroughReadOnly;
    std::vector<std::unique_ptr<IAbstractObject>> m_keptViews;
};

// Finds the object of interface T: after `object.accept(converter)`, `get()` points at it.
// The pointer stays valid while the converter and the visited object live.
template <typename T>
class Converter : public BaseConverter {
  public:
    explicit Converter(bool lookThroughReadOnly) : BaseConverter(lookThroughReadOnly) {}
    using BaseConverter::visit;
    void visit(T& object) override { m_object = &object; }
    T* get() const { return m_object; }

  private:
    T* m_object = nullptr;
};

// A read-only wrapper is itself the object sought, never looked through.
template <>
class Converter<IReadOnly> : public BaseConverter {
  public:
    explicit Converter(bool lookThroughReadOnly) : BaseConverter(lookThroughReadOnly) {}
    using BaseConverter::visit;
    void visit(IReadOnly& object) override { m_object = &object; }
    IReadOnly* get() const { return m_object; }

  private:
    IReadOnly* m_object = nullptr;
};

// The result of a conversion: a pointer to T together with the views that it lives in.
template <typename T>
class Converted {
  public:
    Converted(T* object, std::vector<std::unique_ptr<IAbstractObject>> keptViews)
        : m_keptViews(std::move(keptViews)), m_object(object) {}
    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }

  private:
    std::vector<std::unique_ptr<IAbstractObject>> m_keptViews;
    T* m_object;
};

// Converts an object the caller keeps alive.
template <typename T>
Converted<T> convertTo(IAbstractObject& object, bool lookThroughReadOnly = false) {
    Converter<T> converter(lookThroughReadOnly);
    object.accept(converter);
    return Converted<T>(converter.get(), converter.takeKeptViews());
}

// Converts a view and takes it over.
template <typename T, typename Object>
Converted<T> convertTo(std::unique_ptr<Object> view, bool lookThroughReadOnly = false) {
    Converter<T> converter(lookThroughReadOnly);
    view->accept(converter);
    std::vector<std::unique_ptr<IAbstractObject>> kept = converter.takeKeptViews();
    kept.insert(kept.begin(), std::move(view));
    return Converted<T>(converter.get(), std::move(kept));
}

// Builds a view with `factory` and converts it; the result owns the view.
template <typename T>
Converted<T> convertTo(const ObjectFactory& factory, bool lookThroughReadOnly = false) {
    return convertTo<T>(factory(), lookThroughReadOnly);
}

// Copies the value of the visited object (the source) into a target, as the type record says.
// Source and target may be different implementations that agree with the type. A failed copy
// leaves in the target what was already copied.
class ValueRecopier : public IObjectVisitor {
  public:
    ValueRecopier(IAbstractObject& target, const AbstractType& type) : m_target(target), m_type(&type) {}

    void visit(IUnion& source) override;
    void visit(IEnum& source) override;
    void visit(IReadOnly& source) override;
    void visit(IData& source) override;
    void visit(IFile& source) override;
    void visit(IConstructableObjectMap& source) override;
    void visit(IMap<std::string>& source) override;
    void visit(IMap<std::int32_t>& source) override;
    void visit(IVector& source) override;
    void visit(IFunction& source) override;
    void visit(IVariable<bool>& source) override;
    void visit(IVariable<std::int64_t>& source) override;
    void visit(IVariable<std::int32_t>& source) override;
    void visit(IVariable<std::string>& source) override;
    void visit(IStruct& source) override;

  private:
    template <typename Record>
    const Record& expect() const;
    template <typename T>
    void copyLeaf(IVariable<T>& source);
    template <typename K>
    void copyMap(IMap<K>& source);

    IAbstractObject& m_target;
    const AbstractType* m_type;
};

// Copies `source` into `target` as `type` says.
void copyValue(IAbstractObject& source, IAbstractObject& target, const AbstractType& type);

// The variety name of an object's kind: "int32" ... "union".
std::string getTypeString(IAbstractObject* object);

// The type record that an object's own type function yields.
AbstractType getObjectType(IAbstractObject& object);

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
