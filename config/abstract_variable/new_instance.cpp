// Free-standing objects: storage of their own, built from a type record.
#include <algorithm>
#include <map>
#include <mutex>
#include <stdexcept>

#include "config/abstract_variable/object_construction.h"
#include "config/abstract_variable/visitors.h"
#include "cpp_utils/constructable_object_map/constructable_object_map.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

namespace {

namespace tag = abstract_type::v1::tag;
using cpp_utils::constructable_object_map::v2::ConstructableObjectMap;
using cpp_utils::constructable_object_map::v2::NeverClash;

template <typename Record>
const Record& recordOf(const AbstractType& type) {
    return type.get<Record>();
}

template <typename T>
ObjectFactory newLeaf() {
    auto value = std::make_shared<T>();
    return variableOf<T>(value, value.get());
}

ObjectFactory newStructInstance(const StructType& type) {
    CDynStruct::Children children;
    for (const auto& child : type.children) {
        children.emplace_back(child.name, newInstance(*child.type));
    }
    return CDynStruct(std::move(children), constantType(type)).factory();
}

template <typename K>
ObjectFactory newMapInstance(const MapType<K>& type) {
    auto elements = std::make_shared<std::map<K, ObjectFactory>>();
    auto elementType = std::make_shared<const AbstractType>(*type.element);
    auto find = [elements](const K& id) { return findId(*elements, id); };
    TypeFunction<MapType<K>> typeFunction = constantType(type);
    return [=]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<Map<K>>([elements] { return keysOf(*elements); },
                                        [find](const K& id) { return find(id)->second; },
                                        [elements, find](const K& id) { elements->erase(find(id)); },
                                        [elements, elementType](const K& id) {
                                            if (!elements->contains(id)) {
                                                elements->emplace(id, newInstance(*elementType));
                                            }
                                        },
                                        typeFunction);
    };
}

// Elements are unserialised in parallel, so every operation on the table takes its lock; each
// element's storage is its own and needs none.
ObjectFactory newConstructableMapInstance(const ConstructableObjectMapType& type) {
    struct Storage {
        explicit Storage(const ConstructableObjectMapType& type)
            : configurationType(*type.configuration),
              elements([state = AbstractType(*type.state)](const ObjectFactory&, std::int32_t) {
                  return newInstance(state);
              }) {}
        AbstractType configurationType;
        std::mutex mutex;
        ConstructableObjectMap<ObjectFactory, ObjectFactory, NeverClash> elements;
    };
    auto storage = std::make_shared<Storage>(type);
    TypeFunction<ReadOnlyType> configurationView = constantType(ReadOnlyType{*type.configuration});
    auto copyConfiguration = [storage](IAbstractObject& configuration) {
        ObjectFactory copy = newInstance(storage->configurationType);
        copyValue(configuration, *copy(), storage->configurationType);
        return copy;
    };
    TypeFunction<ConstructableObjectMapType> typeFunction = constantType(type);
    return [=]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<CConstructableObjectMap>(
            [storage] {
                std::lock_guard lock(storage->mutex);
                return storage->elements.ids();
            },
            [storage, configurationView](std::int32_t id) {
                std::lock_guard lock(storage->mutex);
                auto& [configuration, state] = storage->elements.get(id);
                TypedFactory<IReadOnly> readOnly = [configuration, configurationView] {
                    return std::make_unique<ReadOnlyImpl>([configuration] { return configuration; },
                                                          configurationView);
                };
                return ConstructableElement(readOnly, state);
            },
            [storage] { return newInstance(storage->configurationType); },
            [storage, copyConfiguration](std::int32_t id, IAbstractObject& configuration) {
                ObjectFactory copy = copyConfiguration(configuration);
                std::lock_guard lock(storage->mutex);
                storage->elements.add(id, std::move(copy));
            },
            [storage, copyConfiguration](IAbstractObject& configuration) {
                ObjectFactory copy = copyConfiguration(configuration);
                std::lock_guard lock(storage->mutex);
                return storage->elements.add(std::move(copy));
            },
            [storage](std::int32_t id) {
                std::lock_guard lock(storage->mutex);
                storage->elements.remove(id);
            },
            typeFunction, true);
    };
}

ObjectFactory newFunctionInstance(const FunctionType& type) {
    auto parameter = std::make_shared<const AbstractType>(*type.parameter);
    auto result = std::make_shared<const AbstractType>(*type.returnType);
    TypeFunction<FunctionType> typeFunction = constantType(type);
    return [=]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<IFunctionImpl>([parameter] { return newInstance(*parameter); },
                                               [result](IAbstractObject&) { return newInstance(*result); },
                                               typeFunction);
    };
}

ObjectFactory newFileInstance() {
    auto content = std::make_shared<FileContent>();
    return [content]() -> std::unique_ptr<IAbstractObject> { return FileImpl::over(content); };
}

ObjectFactory newReadOnlyInstance(const ReadOnlyType& type) {
    ObjectFactory underlying = newInstance(*type.underlying);
    TypeFunction<ReadOnlyType> typeFunction = constantType(type);
    return [underlying, typeFunction]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<ReadOnlyImpl>([underlying] { return underlying; }, typeFunction);
    };
}

ObjectFactory newEnumInstance(const EnumType& type) {
    auto value = std::make_shared<std::string>(type.choices.empty() ? std::string() : type.choices.front());
    auto record = std::make_shared<const EnumType>(type);
    return [value, record]() -> std::unique_ptr<IAbstractObject> {
        return newEnumVar(
            [value] { return *value; },
            [value, record](const std::string& name) {
                const auto& choices = record->choices;
                if (std::find(choices.begin(), choices.end(), name) == choices.end()) {
                    throw AbstractVariableException("'" + name + "' is not a valid choice in this enum");
                }
                *value = name;
            },
            [record] { return record; });
    };
}

// A full union keeps a value for every alternative; another one keeps only the current one's and
// starts that one afresh when the alternative changes.
ObjectFactory newUnionInstance(const UnionType& type) {
    struct Storage {
        std::string current;
        std::map<std::string, ObjectFactory> values;
    };
    auto record = std::make_shared<const UnionType>(type);
    auto storage = std::make_shared<Storage>();
    auto typeOf = [record](const std::string& name) -> const AbstractType* {
        for (const auto& alternative : record->valueTypes) {
            if (alternative.name == name) {
                return &*alternative.type;
            }
        }
        return nullptr;
    };
    if (!type.valueTypes.empty()) {
        storage->current = type.valueTypes.front().name;
    }
    for (const auto& alternative : type.valueTypes) {
        if (type.full || alternative.name == storage->current) {
            storage->values.emplace(alternative.name, newInstance(*alternative.type));
        }
    }
    return [record, storage, typeOf]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<UnionImpl>([storage] { return storage->current; },
                                           [record, storage, typeOf](const std::string& name) {
                                               const AbstractType* alternative = typeOf(name);
                                               if (alternative == nullptr) {
                                                   throw AbstractVariableException("Invalid union type");
                                               }
                                               if (!record->full && name != storage->current) {
                                                   storage->values.clear();
                                                   storage->values.emplace(name, newInstance(*alternative));
                                               }
                                               storage->current = name;
                                           },
                                           [storage](const std::string& name) {
                                               auto found = storage->values.find(name);
                                               if (found == storage->values.end()) {
                                                   throw AbstractVariableException("Invalid union type");
                                               }
                                               return found->second;
                                           },
                                           [record] { return record; });
    };
}

}  // namespace

ObjectFactory newVectorInstance(const VectorType& type) {
    auto elements = std::make_shared<std::vector<ObjectFactory>>();
    auto elementType = std::make_shared<const AbstractType>(*type.element);
    TypeFunction<VectorType> typeFunction = constantType(type);
    return [=]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<VectorImpl>(
            [elements] { return static_cast<std::int32_t>(elements->size()); },
            [elements, elementType](std::int32_t size) {
                if (size < 0) {
                    return static_cast<std::int32_t>(elements->size());
                }
                while (elements->size() < static_cast<std::size_t>(size)) {
                    elements->push_back(newInstance(*elementType));
                }
                elements->resize(static_cast<std::size_t>(size));
                return size;
            },
            [elements](std::int32_t index) {
                if (index < 0 || static_cast<std::size_t>(index) >= elements->size()) {
                    throw std::out_of_range("invalid vector<T> subscript");
                }
                return (*elements)[static_cast<std::size_t>(index)];
            },
            typeFunction);
    };
}

ObjectFactory newInstance(const AbstractType& type) {
    switch (type.tag()) {
        case tag::kInt32:
            return newLeaf<std::int32_t>();
        case tag::kInt64:
            return newLeaf<std::int64_t>();
        case tag::kBool:
            return newLeaf<bool>();
        case tag::kString:
            return newLeaf<std::string>();
        case tag::kStruct:
            return newStructInstance(recordOf<StructType>(type));
        case tag::kVector:
            return newVectorInstance(recordOf<VectorType>(type));
        case tag::kMap:
            return newMapInstance(recordOf<MapType<std::int32_t>>(type));
        case tag::kMapStr:
            return newMapInstance(recordOf<MapType<std::string>>(type));
        case tag::kConstructableObjectMap:
            return newConstructableMapInstance(recordOf<ConstructableObjectMapType>(type));
        case tag::kFunction:
            return newFunctionInstance(recordOf<FunctionType>(type));
        case tag::kFile:
            return newFileInstance();
        case tag::kData:
            throw AbstractVariableException("Not implemented: newInstance<DataType>");
        case tag::kReadOnly:
            return newReadOnlyInstance(recordOf<ReadOnlyType>(type));
        case tag::kEnum:
            return newEnumInstance(recordOf<EnumType>(type));
        case tag::kUnion:
            return newUnionInstance(recordOf<UnionType>(type));
        default:
            throw AbstractVariableException("internal assertion failure");
    }
}

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
