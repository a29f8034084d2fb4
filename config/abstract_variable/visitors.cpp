#include "config/abstract_variable/visitors.h"

#include <algorithm>
#include <stdexcept>

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

namespace {

[[noreturn]] void notSupported() {
    throw AbstractVariableException("Operation not supported");
}
[[noreturn]] void cannotConvert() {
    throw AbstractVariableException("Cannot convert variable");
}
[[noreturn]] void typeMismatch() {
    throw AbstractVariableException("Cannot copy object : given type does not match the source object");
}

constexpr std::size_t kDataCopyBuffer = 1000000;

}  // namespace

void TypeSpecificCommand::visit(IUnion&) {
    notSupported();
}
void TypeSpecificCommand::visit(IEnum&) {
    notSupported();
}
void TypeSpecificCommand::visit(IReadOnly&) {
    notSupported();
}
void TypeSpecificCommand::visit(IData&) {
    notSupported();
}
void TypeSpecificCommand::visit(IFile&) {
    notSupported();
}
void TypeSpecificCommand::visit(IConstructableObjectMap&) {
    notSupported();
}
void TypeSpecificCommand::visit(IMap<std::string>&) {
    notSupported();
}
void TypeSpecificCommand::visit(IMap<std::int32_t>&) {
    notSupported();
}
void TypeSpecificCommand::visit(IVector&) {
    notSupported();
}
void TypeSpecificCommand::visit(IFunction&) {
    notSupported();
}
void TypeSpecificCommand::visit(IVariable<bool>&) {
    notSupported();
}
void TypeSpecificCommand::visit(IVariable<std::int64_t>&) {
    notSupported();
}
void TypeSpecificCommand::visit(IVariable<std::int32_t>&) {
    notSupported();
}
void TypeSpecificCommand::visit(IVariable<std::string>&) {
    notSupported();
}
void TypeSpecificCommand::visit(IStruct&) {
    notSupported();
}

void BaseConverter::visit(IUnion&) {
    cannotConvert();
}
void BaseConverter::visit(IEnum&) {
    cannotConvert();
}
void BaseConverter::visit(IData&) {
    cannotConvert();
}
void BaseConverter::visit(IFile&) {
    cannotConvert();
}
void BaseConverter::visit(IConstructableObjectMap&) {
    cannotConvert();
}
void BaseConverter::visit(IMap<std::string>&) {
    cannotConvert();
}
void BaseConverter::visit(IMap<std::int32_t>&) {
    cannotConvert();
}
void BaseConverter::visit(IVector&) {
    cannotConvert();
}
void BaseConverter::visit(IFunction&) {
    cannotConvert();
}
void BaseConverter::visit(IVariable<bool>&) {
    cannotConvert();
}
void BaseConverter::visit(IVariable<std::int64_t>&) {
    cannotConvert();
}
void BaseConverter::visit(IVariable<std::int32_t>&) {
    cannotConvert();
}
void BaseConverter::visit(IVariable<std::string>&) {
    cannotConvert();
}
void BaseConverter::visit(IStruct&) {
    cannotConvert();
}

void BaseConverter::visit(IReadOnly& object) {
    if (!m_lookThroughReadOnly) {
        throw AbstractVariableException("Cannot convert read only variable");
    }
    // The inner view must outlive the pointer that the conversion hands out, so it is kept.
    std::unique_ptr<IAbstractObject> inner = object.getUnderlying()();
    IAbstractObject& innerObject = *inner;
    m_keptViews.push_back(std::move(inner));
    innerObject.accept(*this);
}

template <typename Record>
const Record& ValueRecopier::expect() const {
    if (!m_type->is<Record>()) {
        typeMismatch();
    }
    return m_type->get<Record>();
}

template <typename T>
void ValueRecopier::copyLeaf(IVariable<T>& source) {
    expect<VariableType<T>>();
    convertTo<IVariable<T>>(m_target, true)->set(source.get());
}

void ValueRecopier::visit(IVariable<bool>& source) {
    copyLeaf(source);
}
void ValueRecopier::visit(IVariable<std::int64_t>& source) {
    copyLeaf(source);
}
void ValueRecopier::visit(IVariable<std::int32_t>& source) {
    copyLeaf(source);
}
void ValueRecopier::visit(IVariable<std::string>& source) {
    copyLeaf(source);
}

void ValueRecopier::visit(IEnum& source) {
    const EnumType& type = expect<EnumType>();
    const std::string name = source.get();
    if (std::find(type.choices.begin(), type.choices.end(), name) == type.choices.end()) {
        throw AbstractVariableException("Copy object failed: enum value '" + name +
                                        "' is not a valid choice in the given type");
    }
    convertTo<IEnum>(m_target, true)->set(name);
}

void ValueRecopier::visit(IReadOnly&) {
    expect<ReadOnlyType>();
}

void ValueRecopier::visit(IFunction&) {}

void ValueRecopier::visit(IData& source) {
    expect<DataType>();
    auto target = convertTo<IData>(m_target);
    std::unique_ptr<IStreamReceiver> reader = source.newReader();
    std::unique_ptr<IStreamSender> writer = target->newWriter();
    std::vector<std::uint8_t> buffer(kDataCopyBuffer);
    for (std::size_t got = reader->receive(buffer.data(), buffer.size()); got > 0;
         got = reader->receive(buffer.data(), buffer.size())) {
        for (std::size_t sent = 0; sent < got;) {
            sent += writer->send(buffer.data() + sent, got - sent);
        }
    }
}

void ValueRecopier::visit(IFile& source) {
    expect<FileType>();
    const FileContent content = source.get();
    convertTo<IFile>(m_target)->set(content.mimeType, content.bytes.data(), content.bytes.size());
}

void ValueRecopier::visit(IVector& source) {
    const VectorType& type = expect<VectorType>();
    auto target = convertTo<IVector>(m_target);
    const std::int32_t size = source.size();
    target->resize(size);
    for (std::int32_t index = 0; index < size; ++index) {
        copyValue(*source.get(index)(), *target->get(index)(), *type.element);
    }
}

template <typename K>
void ValueRecopier::copyMap(IMap<K>& source) {
    const MapType<K>& type = expect<MapType<K>>();
    auto target = convertTo<IMap<K>>(m_target);
    for (const K& id : target->ids()) {
        target->remove(id);
    }
    for (const K& id : source.ids()) {
        target->add(id);
        copyValue(*source.get(id)(), *target->get(id)(), *type.element);
    }
}

void ValueRecopier::visit(IMap<std::string>& source) {
    copyMap(source);
}
void ValueRecopier::visit(IMap<std::int32_t>& source) {
    copyMap(source);
}

void ValueRecopier::visit(IConstructableObjectMap& source) {
    const ConstructableObjectMapType& type = expect<ConstructableObjectMapType>();
    auto target = convertTo<IConstructableObjectMap>(m_target);
    for (std::int32_t id : target->ids()) {
        target->remove(id);
    }
    for (std::int32_t id : source.ids()) {
        ConstructableElement element = source.get(id);
        std::unique_ptr<IAbstractObject> configuration = element.first()->getUnderlying()();
        target->add(id, *configuration);
        copyValue(*element.second(), *target->get(id).second(), *type.state);
    }
}

void ValueRecopier::visit(IStruct& source) {
    const StructType& type = expect<StructType>();
    auto target = convertTo<IStruct>(m_target);
    for (const auto& child : type.children) {
        copyValue(*source.getChild(child.name)(), *target->getChild(child.name)(), *child.type);
    }
}

void ValueRecopier::visit(IUnion& source) {
    const UnionType& type = expect<UnionType>();
    auto target = convertTo<IUnion>(m_target);
    const std::string current = source.getCurrentType();
    if (target->getCurrentType() != current) {
        target->setCurrentType(current);
    }
    for (const auto& alternative : type.valueTypes) {
        if (type.full || alternative.name == current) {
            copyValue(*source.getValue(alternative.name)(), *target->getValue(alternative.name)(),
                      *alternative.type);
        }
    }
}

void copyValue(IAbstractObject& source, IAbstractObject& target, const AbstractType& type) {
    ValueRecopier recopier(target, type);
    source.accept(recopier);
}

namespace {

class ObjectNameVisitor : public IObjectVisitor {
  public:
    void visit(IUnion&) override { m_name = "union"; }
    void visit(IEnum&) override { m_name = "enum"; }
    void visit(IReadOnly&) override { m_name = "read_only"; }
    void visit(IData&) override { m_name = "data"; }
    void visit(IFile&) override { m_name = "file"; }
    void visit(IConstructableObjectMap&) override { m_name = "constructable_object_map"; }
    void visit(IMap<std::string>&) override { m_name = "map_str"; }
    void visit(IMap<std::int32_t>&) override { m_name = "map"; }
    void visit(IVector&) override { m_name = "vector"; }
    void visit(IFunction&) override { m_name = "function"; }
    void visit(IVariable<bool>&) override { m_name = "bool"; }
    void visit(IVariable<std::int64_t>&) override { m_name = "int64"; }
    void visit(IVariable<std::int32_t>&) override { m_name = "int32"; }
    void visit(IVariable<std::string>&) override { m_name = "string"; }
    void visit(IStruct&) override { m_name = "struct"; }

    std::string m_name;
};

class ObjectTypeVisitor : public IObjectVisitor {
  public:
    void visit(IUnion& object) override { take(object); }
    void visit(IEnum& object) override { take(object); }
    void visit(IReadOnly& object) override { take(object); }
    void visit(IData& object) override { take(object); }
    void visit(IFile& object) override { take(object); }
    void visit(IConstructableObjectMap& object) override { take(object); }
    void visit(IMap<std::string>& object) override { take(object); }
    void visit(IMap<std::int32_t>& object) override { take(object); }
    void visit(IVector& object) override { take(object); }
    void visit(IFunction& object) override { take(object); }
    void visit(IVariable<bool>& object) override { take(object); }
    void visit(IVariable<std::int64_t>& object) override { take(object); }
    void visit(IVariable<std::int32_t>& object) override { take(object); }
    void visit(IVariable<std::string>& object) override { take(object); }
    void visit(IStruct& object) override { take(object); }

    AbstractType m_type;

  private:
    template <typename Object>
    void take(Object& object) {
        m_type = *object.getTypeFunction()();
    }
};

}  // namespace

std::string getTypeString(IAbstractObject* object) {
    ObjectNameVisitor visitor;
    object->accept(visitor);
    return visitor.m_name;
}

AbstractType getObjectType(IAbstractObject& object) {
    ObjectTypeVisitor visitor;
    object.accept(visitor);
    return std::move(visitor.m_type);
}

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
