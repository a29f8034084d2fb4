// Declaring a tree of abstract variables over plain native structs.
//
// A `Declaration<Native>` says once how a native type is seen: the type record and how to build a
// view over one instance. Declarations nest like the native types do, and the native structs stay
// plain structs:
//
//   struct Pair { Sampling status = Sampling::None; std::int32_t rate = 0; };
//   struct Engine { std::vector<Pair> pairs; std::string name; };
//
//   const auto pair = StructDeclaration<Pair>()
//                         .field("ChannelStatus", &Pair::status, declareEnum(kSamplings, samplingName))
//                         .field("DataRate", &Pair::rate)
//                         .build();
//   const auto engine = StructDeclaration<Engine>()
//                           .field("AudioSampling", &Engine::pairs, declareVector<std::vector<Pair>>(pair))
//                           .readOnlyField("Name", &Engine::name)
//                           .build();
//   ObjectFactory root = engine.factory(engineState);  // a shared_ptr, or a reference that outlives it
//
// Views hold the storage they show through `shared_ptr`s that share ownership with the root, so a
// view stays valid as long as it lives when the root is shared; for a root given by reference the
// caller keeps it alive. Views take no lock except the constructable map's table operations
// (elements of such a map are unserialised in parallel); other shared data is the exposer's to
// guard.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "config/abstract_variable/object_construction.h"
#include "config/abstract_variable/visitors.h"
#include "cpp_utils/constructable_object_map/constructable_object_map.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

// The type function of one record held inside a shared `AbstractType`.
template <typename Record>
TypeFunction<Record> recordFunction(const std::shared_ptr<const AbstractType>& type) {
    std::shared_ptr<const Record> record(type, &type->get<Record>());
    return [record] { return record; };
}

// How a native type is seen: its type record and a view builder over one instance.
template <typename Native>
class Declaration {
  public:
    using ViewFunction = std::function<std::unique_ptr<IAbstractObject>(const std::shared_ptr<Native>&)>;

    Declaration(ViewFunction view, AbstractType type)
        : m_view(std::make_shared<const ViewFunction>(std::move(view))),
          m_type(std::make_shared<const AbstractType>(std::move(type))) {}

    // A view over `data`, which it keeps alive.
    std::unique_ptr<IAbstractObject> view(const std::shared_ptr<Native>& data) const {
        return (*m_view)(data);
    }
    // Views over storage that `data` keeps alive.
    ObjectFactory factory(std::shared_ptr<Native> data) const {
        return [view = m_view, data]() { return (*view)(data); };
    }
    // Views over storage that outlives every view (the caller's promise).
    ObjectFactory factory(Native& data) const { return factory(unowned(data)); }
    // Views over storage found anew at each call, for parts of containers that may move or go:
    // `locate` fails when the part is gone.
    ObjectFactory locatedFactory(std::function<std::shared_ptr<Native>()> locate) const {
        return [view = m_view, locate = std::move(locate)]() { return (*view)(locate()); };
    }

    const AbstractType& type() const { return *m_type; }
    const std::shared_ptr<const AbstractType>& sharedType() const { return m_type; }

    // A pointer to storage that someone else keeps alive.
    static std::shared_ptr<Native> unowned(Native& data) {
        return std::shared_ptr<Native>(std::shared_ptr<void>(), &data);
    }

  private:
    std::shared_ptr<const ViewFunction> m_view;
    std::shared_ptr<const AbstractType> m_type;
};

// A pointer to a part of `whole` that shares the whole's ownership.
template <typename Part, typename Whole>
std::shared_ptr<Part> partOf(const std::shared_ptr<Whole>& whole, Part* part) {
    return std::shared_ptr<Part>(whole, part);
}

// The declarations of the leaves, of `Void` (a struct with no child) and of `FileContent` (a file).
template <typename T>
Declaration<T> declare() {
    if constexpr (std::is_same_v<T, Void>) {
        return Declaration<T>(
            [empty = CDynStruct({}, constantType(StructType{}))](const std::shared_ptr<T>&)
                -> std::unique_ptr<IAbstractObject> { return std::make_unique<CDynStruct>(empty); },
            StructType{});
    } else if constexpr (std::is_same_v<T, FileContent>) {
        return Declaration<T>(
            [](const std::shared_ptr<T>& data) -> std::unique_ptr<IAbstractObject> {
                return FileImpl::over(data);
            },
            FileType{});
    } else {
        static_assert(std::is_same_v<T, std::int32_t> || std::is_same_v<T, std::int64_t> ||
                          std::is_same_v<T, bool> || std::is_same_v<T, std::string>,
                      "declare<T>() knows leaves, Void and FileContent; declare other types explicitly");
        return Declaration<T>(
            [](const std::shared_ptr<T>& data) -> std::unique_ptr<IAbstractObject> {
                return GetVariable_Impl<T>([data] { return *data; },
                                           [data](const T& value) { *data = value; }, leafType<T>());
            },
            VariableType<T>{});
    }
}

// A byte vector seen as a data object (see `dataOver`).
Declaration<std::vector<std::uint8_t>> declareData();

// A native enum seen by the names that `nameOf` gives its values.
template <typename E, typename NameFn>
Declaration<E> declareEnum(const std::vector<E>& values, NameFn nameOf) {
    std::shared_ptr<const IEnumDecl> decl = GetEnumDecl<E>(values, nameOf);
    auto type = std::make_shared<const AbstractType>(enumTypeOf(*decl));
    TypeFunction<EnumType> typeFunction = recordFunction<EnumType>(type);
    EnumDeclFactory declFactory = [decl] { return decl; };
    return Declaration<E>(
        [declFactory, typeFunction](const std::shared_ptr<E>& data) -> std::unique_ptr<IAbstractObject> {
            return std::make_unique<EnumVarDeclImpl>(enumNumberOf(data), declFactory, typeFunction);
        },
        *type);
}

// A wrapper that lets generic writers read the value but not write it.
template <typename T>
Declaration<T> declareReadOnly(const Declaration<T>& inner) {
    auto type = std::make_shared<const AbstractType>(ReadOnlyType{inner.type()});
    TypeFunction<ReadOnlyType> typeFunction = recordFunction<ReadOnlyType>(type);
    return Declaration<T>(
        [inner, typeFunction](const std::shared_ptr<T>& data) -> std::unique_ptr<IAbstractObject> {
            return std::make_unique<ReadOnlyImpl>([inner, data] { return inner.factory(data); },
                                                  typeFunction);
        },
        *type);
}

// A sequence container (std::vector, std::array, not_resizable_vector ...) of elements seen by
// `element`. A container without `resize` keeps its size, so resizing its view fails with
// "Cannot resize vector"; an index outside the container fails with "invalid vector<T> subscript".
template <typename Container, typename Element = typename Container::value_type>
Declaration<Container> declareVector(const Declaration<Element>& element) {
    auto type = std::make_shared<const AbstractType>(VectorType{element.type()});
    TypeFunction<VectorType> typeFunction = recordFunction<VectorType>(type);
    return Declaration<Container>(
        [element, typeFunction](const std::shared_ptr<Container>& data) -> std::unique_ptr<IAbstractObject> {
            auto size = [data] { return static_cast<std::int32_t>(data->size()); };
            return std::make_unique<VectorImpl>(
                size,
                [data, size](std::int32_t wanted) {
                    if constexpr (requires { data->resize(std::size_t{}); }) {
                        if (wanted >= 0) {
                            data->resize(static_cast<std::size_t>(wanted));
                        }
                    }
                    return size();
                },
                [data, element](std::int32_t index) {
                    auto locate = [data, index] {
                        if (index < 0 || static_cast<std::size_t>(index) >= data->size()) {
                            throw std::out_of_range("invalid vector<T> subscript");
                        }
                        return partOf(data, &(*data)[static_cast<std::size_t>(index)]);
                    };
                    locate();
                    return element.locatedFactory(locate);
                },
                typeFunction);
        },
        *type);
}

// A std::map keyed by std::int32_t ("map") or std::string ("map_str"). Access to or removal of an
// absent key fails with "such id does not exist"; adding a present key keeps its element.
template <typename MapContainer, typename Element = typename MapContainer::mapped_type>
Declaration<MapContainer> declareMap(const Declaration<Element>& element) {
    using K = typename MapContainer::key_type;
    static_assert(std::is_same_v<K, std::int32_t> || std::is_same_v<K, std::string>,
                  "keys are int32 or string");
    auto type = std::make_shared<const AbstractType>(MapType<K>{element.type()});
    TypeFunction<MapType<K>> typeFunction = recordFunction<MapType<K>>(type);
    return Declaration<MapContainer>(
        [element,
         typeFunction](const std::shared_ptr<MapContainer>& data) -> std::unique_ptr<IAbstractObject> {
            auto find = [data](const K& id) { return findId(*data, id); };
            return std::make_unique<Map<K>>([data] { return keysOf(*data); },
                                            [data, element, find](const K& id) {
                                                auto locate = [data, find, id] {
                                                    return partOf(data, &find(id)->second);
                                                };
                                                locate();
                                                return element.locatedFactory(locate);
                                            },
                                            [data, find](const K& id) { data->erase(find(id)); },
                                            [data](const K& id) { data->try_emplace(id); }, typeFunction);
        },
        *type);
}

// A std::variant seen as a union that is not full: only the current alternative has a value.
// Choosing another alternative starts it from its default value; naming an alternative that is not
// the current one, or an unknown one, fails with "Invalid union type".
template <typename Variant, typename... Alternatives>
Declaration<Variant> declareVariant(std::array<std::string, sizeof...(Alternatives)> names,
                                    const Declaration<Alternatives>&... alternatives) {
    static_assert(std::is_same_v<Variant, std::variant<Alternatives...>>, "one declaration per alternative");
    constexpr std::size_t kCount = sizeof...(Alternatives);
    UnionType record;
    std::size_t position = 0;
    ((record.valueTypes.push_back({names[position++], alternatives.type()})), ...);
    auto type = std::make_shared<const AbstractType>(std::move(record));
    TypeFunction<UnionType> typeFunction = recordFunction<UnionType>(type);

    using Emplacer = void (*)(Variant&);
    using Viewer = std::function<ObjectFactory(const std::shared_ptr<Variant>&)>;
    auto tables = [&]<std::size_t... I>(std::index_sequence<I...>) {
        std::array<Emplacer, kCount> emplacers = {[](Variant& v) { v.template emplace<I>(); }...};
        std::array<Viewer, kCount> viewers = {
            Viewer([alternative = alternatives](const std::shared_ptr<Variant>& data) {
                return alternative.locatedFactory([data] {
                    if (data->index() != I) {
                        throw AbstractVariableException("Invalid union type");
                    }
                    return partOf(data, &std::get<I>(*data));
                });
            })...};
        return std::make_pair(emplacers, viewers);
    }
    (std::index_sequence_for<Alternatives...>{});
    auto shared = std::make_shared<const decltype(tables)>(std::move(tables));
    auto sharedNames = std::make_shared<const std::array<std::string, kCount>>(std::move(names));
    auto indexOf = [sharedNames](const std::string& name) {
        for (std::size_t index = 0; index < sharedNames->size(); ++index) {
            if ((*sharedNames)[index] == name) {
                return index;
            }
        }
        throw AbstractVariableException("Invalid union type");
    };
    return Declaration<Variant>(
        [shared, sharedNames, indexOf,
         typeFunction](const std::shared_ptr<Variant>& data) -> std::unique_ptr<IAbstractObject> {
            return std::make_unique<UnionImpl>([data, sharedNames] { return (*sharedNames)[data->index()]; },
                                               [data, shared, indexOf](const std::string& name) {
                                                   const std::size_t index = indexOf(name);
                                                   if (index != data->index()) {
                                                       shared->first[index](*data);
                                                   }
                                               },
                                               [data, shared, indexOf](const std::string& name) {
                                                   const std::size_t index = indexOf(name);
                                                   if (index != data->index()) {
                                                       throw AbstractVariableException("Invalid union type");
                                                   }
                                                   return shared->second[index](data);
                                               },
                                               typeFunction);
        },
        *type);
}

namespace detail {
// Guards the table operations of constructable map views over one native map.
std::mutex& tableLockFor(const void* map);
}  // namespace detail

// A `ConstructableObjectMap` seen as a constructable map: configurations through `configuration`,
// states through `state`. A new element's configuration is copied from the caller's object into a
// native `Config` before the native map builds the state. Table operations take a lock per map;
// code that changes the native map while its views are in use guards it itself.
template <typename Config, typename State,
          typename Clash = cpp_utils::constructable_object_map::v2::ConfigurationsClash<Config>>
Declaration<cpp_utils::constructable_object_map::v2::ConstructableObjectMap<Config, State, Clash>>
declareConstructableMap(const Declaration<Config>& configuration, const Declaration<State>& state) {
    using Native = cpp_utils::constructable_object_map::v2::ConstructableObjectMap<Config, State, Clash>;
    auto type =
        std::make_shared<const AbstractType>(ConstructableObjectMapType{configuration.type(), state.type()});
    TypeFunction<ConstructableObjectMapType> typeFunction = recordFunction<ConstructableObjectMapType>(type);
    TypeFunction<ReadOnlyType> readOnlyType = constantType(ReadOnlyType{configuration.type()});
    auto nativeConfiguration = [configuration](IAbstractObject& object) {
        auto native = std::make_shared<Config>();
        copyValue(object, *configuration.view(native), configuration.type());
        return std::move(*native);
    };
    return Declaration<Native>(
        [=](const std::shared_ptr<Native>& data) -> std::unique_ptr<IAbstractObject> {
            std::mutex& table = detail::tableLockFor(data.get());
            return std::make_unique<CConstructableObjectMap>(
                [data, &table] {
                    std::lock_guard lock(table);
                    return data->ids();
                },
                [data, &table, configuration, readOnlyType, state](std::int32_t id) {
                    auto locate = [data, &table, id] {
                        std::lock_guard lock(table);
                        return &data->get(id);
                    };
                    locate();
                    ObjectFactory config = configuration.locatedFactory(
                        [data, locate] { return partOf(data, &locate()->first); });
                    TypedFactory<IReadOnly> configView = [config, readOnlyType] {
                        return std::make_unique<ReadOnlyImpl>([config] { return config; }, readOnlyType);
                    };
                    return ConstructableElement(configView, state.locatedFactory([data, locate] {
                        return partOf(data, &locate()->second);
                    }));
                },
                [configuration] { return configuration.factory(std::make_shared<Config>()); },
                [data, &table, nativeConfiguration](std::int32_t id, IAbstractObject& object) {
                    Config native = nativeConfiguration(object);
                    std::lock_guard lock(table);
                    data->add(id, std::move(native));
                },
                [data, &table, nativeConfiguration](IAbstractObject& object) {
                    Config native = nativeConfiguration(object);
                    std::lock_guard lock(table);
                    return data->add(std::move(native));
                },
                [data, &table](std::int32_t id) {
                    std::lock_guard lock(table);
                    data->remove(id);
                },
                typeFunction, true);
        },
        *type);
}

// The fields of a native struct, in the order in which they are to be listed.
template <typename S>
class StructDeclaration {
  public:
    using ChildFunction = std::function<ObjectFactory(const std::shared_ptr<S>&)>;

    // A member seen as its default declaration (leaves, Void, FileContent).
    template <typename M>
    StructDeclaration& field(std::string name, M S::*member) {
        return field(std::move(name), member, declare<M>());
    }
    template <typename M>
    StructDeclaration& field(std::string name, M S::*member, const Declaration<M>& declaration) {
        return child(std::move(name), declaration.type(),
                     [member, declaration](const std::shared_ptr<S>& data) {
                         return declaration.factory(partOf(data, &((*data).*member)));
                     });
    }
    // A member that generic writers may read but not write.
    template <typename M>
    StructDeclaration& readOnlyField(std::string name, M S::*member) {
        return field(std::move(name), member, declareReadOnly(declare<M>()));
    }
    template <typename M>
    StructDeclaration& readOnlyField(std::string name, M S::*member, const Declaration<M>& declaration) {
        return field(std::move(name), member, declareReadOnly(declaration));
    }
    // The whole struct seen another way, for example as a union over several of its members.
    StructDeclaration& view(std::string name, const Declaration<S>& declaration) {
        return child(std::move(name), declaration.type(),
                     [declaration](const std::shared_ptr<S>& data) { return declaration.factory(data); });
    }
    // A function of the struct: the parameter is a native P filled from the caller's parameter
    // object, and the result a native R kept alive by the factory that the call returns.
    template <typename P, typename R>
    StructDeclaration& method(std::string name, const Declaration<P>& parameter, const Declaration<R>& result,
                              std::function<R(S&, const P&)> function) {
        auto type = std::make_shared<const AbstractType>(FunctionType{parameter.type(), result.type()});
        TypeFunction<FunctionType> typeFunction = recordFunction<FunctionType>(type);
        return child(std::move(name), *type, [=](const std::shared_ptr<S>& data) -> ObjectFactory {
            return [=]() -> std::unique_ptr<IAbstractObject> {
                return std::make_unique<IFunctionImpl>(
                    [parameter] { return parameter.factory(std::make_shared<P>()); },
                    [data, parameter, result, function](IAbstractObject& object) {
                        auto native = std::make_shared<P>();
                        copyValue(object, *parameter.view(native), parameter.type());
                        return result.factory(std::make_shared<R>(function(*data, *native)));
                    },
                    typeFunction);
            };
        });
    }
    // Any child: its record and a function from the struct to the child's factory.
    StructDeclaration& child(std::string name, AbstractType type, ChildFunction function) {
        m_type.children.push_back({name, std::move(type)});
        m_children->emplace(std::move(name), std::move(function));
        return *this;
    }

    // Unknown names fail with "No such variable: " and the name.
    Declaration<S> build() const {
        auto type = std::make_shared<const AbstractType>(m_type);
        TypeFunction<StructType> typeFunction = recordFunction<StructType>(type);
        std::shared_ptr<const std::map<std::string, ChildFunction>> children =
            std::make_shared<const std::map<std::string, ChildFunction>>(*m_children);
        return Declaration<S>(
            [children, typeFunction](const std::shared_ptr<S>& data) -> std::unique_ptr<IAbstractObject> {
                return newStruct(
                    [children, data](const std::string& name) {
                        auto found = children->find(name);
                        if (found == children->end()) {
                            throw AbstractVariableException("No such variable: " + name);
                        }
                        return found->second(data);
                    },
                    typeFunction);
            },
            *type);
    }

  private:
    StructType m_type;
    std::shared_ptr<std::map<std::string, ChildFunction>> m_children =
        std::make_shared<std::map<std::string, ChildFunction>>();
};

// A union over a native struct that holds every alternative at once (a full union) and a
// selector member naming the current one. An unknown name fails with "Invalid union type".
template <typename S>
class FullUnionDeclaration {
  public:
    explicit FullUnionDeclaration(std::string S::*selector) : m_selector(selector) {}

    template <typename M>
    FullUnionDeclaration& alternative(std::string name, M S::*member, const Declaration<M>& declaration) {
        m_type.valueTypes.push_back({name, declaration.type()});
        m_values->emplace(std::move(name), [member, declaration](const std::shared_ptr<S>& data) {
            return declaration.factory(partOf(data, &((*data).*member)));
        });
        return *this;
    }
    template <typename M>
    FullUnionDeclaration& alternative(std::string name, M S::*member) {
        return alternative(std::move(name), member, declare<M>());
    }

    Declaration<S> build() const {
        UnionType record = m_type;
        record.full = true;
        auto type = std::make_shared<const AbstractType>(std::move(record));
        TypeFunction<UnionType> typeFunction = recordFunction<UnionType>(type);
        auto values = std::make_shared<const Values>(*m_values);
        auto find = [values](const std::string& name) {
            auto found = values->find(name);
            if (found == values->end()) {
                throw AbstractVariableException("Invalid union type");
            }
            return found;
        };
        return Declaration<S>(
            [selector = m_selector, find,
             typeFunction](const std::shared_ptr<S>& data) -> std::unique_ptr<IAbstractObject> {
                return std::make_unique<UnionImpl>(
                    [data, selector] { return (*data).*selector; },
                    [data, selector, find](const std::string& name) {
                        find(name);
                        (*data).*selector = name;
                    },
                    [data, find](const std::string& name) { return find(name)->second(data); }, typeFunction);
            },
            *type);
    }

  private:
    using Values = std::map<std::string, std::function<ObjectFactory(const std::shared_ptr<S>&)>>;
    std::string S::*m_selector;
    UnionType m_type;
    std::shared_ptr<Values> m_values = std::make_shared<Values>();
};

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
