#include "config/abstract_variable/abstract_type_json.h"

#include <functional>
#include <map>
#include <stdexcept>

namespace ovtx::config::abstract_variable::abstract_type::v1 {

namespace {

Json::Value namedTypesToJson(const std::vector<NamedType>& list) {
    Json::Value array(Json::arrayValue);
    for (const auto& named : list) {
        Json::Value entry(Json::objectValue);
        entry["name"] = named.name;
        entry["type"] = SerializeTypeToJson(*named.type);
        array.append(entry);
    }
    return array;
}

// Lists are read by index, so that jsoncpp refuses a list given as an object with its own failure.
template <typename Read>
void forEachListEntry(const Json::Value& list, Read read) {
    for (Json::ArrayIndex index = 0; index < list.size(); ++index) {
        read(list[index]);
    }
}

std::vector<NamedType> namedTypesFromJson(const Json::Value& list) {
    std::vector<NamedType> named;
    forEachListEntry(list, [&](const Json::Value& entry) {
        named.push_back({entry["name"].asString(), UnserializeTypeFromJson(entry["type"])});
    });
    return named;
}

// Writes the members of each record after "variety".
struct MemberWriter {
    Json::Value& json;

    template <typename T>
    void operator()(const VariableType<T>&) const {}
    void operator()(const FileType&) const {}
    void operator()(const DataType&) const {}
    void operator()(const StructType& record) const { json["children"] = namedTypesToJson(record.children); }
    void operator()(const VectorType& record) const {
        json["element"] = SerializeTypeToJson(*record.element);
    }
    template <typename K>
    void operator()(const MapType<K>& record) const {
        json["element"] = SerializeTypeToJson(*record.element);
    }
    void operator()(const ConstructableObjectMapType& record) const {
        json["element_configuration"] = SerializeTypeToJson(*record.configuration);
        json["element_state"] = SerializeTypeToJson(*record.state);
    }
    void operator()(const FunctionType& record) const {
        json["parameter_type"] = SerializeTypeToJson(*record.parameter);
        json["return_type"] = SerializeTypeToJson(*record.returnType);
    }
    void operator()(const ReadOnlyType& record) const {
        json["underlying_type"] = SerializeTypeToJson(*record.underlying);
    }
    void operator()(const EnumType& record) const {
        Json::Value choices(Json::arrayValue);
        for (const auto& choice : record.choices) {
            Json::Value entry(Json::objectValue);
            entry["value"] = choice;
            choices.append(entry);
        }
        json["choices"] = choices;
    }
    void operator()(const UnionType& record) const {
        Json::Value names(Json::arrayValue);
        for (const auto& alternative : record.valueTypes) {
            names.append(alternative.name);
        }
        json["available_types"] = names;
        json["value_types"] = namedTypesToJson(record.valueTypes);
        json["full"] = record.full;
    }
};

using Reader = std::function<AbstractType(const Json::Value&)>;

const std::map<std::string, Reader>& readers() {
    static const std::map<std::string, Reader> kReaders = {
        {"int32", [](const Json::Value&) -> AbstractType { return VariableType<std::int32_t>{}; }},
        {"int64", [](const Json::Value&) -> AbstractType { return VariableType<std::int64_t>{}; }},
        {"bool", [](const Json::Value&) -> AbstractType { return VariableType<bool>{}; }},
        {"string", [](const Json::Value&) -> AbstractType { return VariableType<std::string>{}; }},
        {"struct",
         [](const Json::Value& json) -> AbstractType {
             return StructType{namedTypesFromJson(json["children"])};
         }},
        {"vector",
         [](const Json::Value& json) -> AbstractType {
             return VectorType{UnserializeTypeFromJson(json["element"])};
         }},
        {"map",
         [](const Json::Value& json) -> AbstractType {
             return MapType<std::int32_t>{UnserializeTypeFromJson(json["element"])};
         }},
        {"map_str",
         [](const Json::Value& json) -> AbstractType {
             return MapType<std::string>{UnserializeTypeFromJson(json["element"])};
         }},
        {"constructable_object_map",
         [](const Json::Value& json) -> AbstractType {
             return ConstructableObjectMapType{UnserializeTypeFromJson(json["element_configuration"]),
                                               UnserializeTypeFromJson(json["element_state"])};
         }},
        {"function",
         [](const Json::Value& json) -> AbstractType {
             return FunctionType{UnserializeTypeFromJson(json["parameter_type"]),
                                 UnserializeTypeFromJson(json["return_type"])};
         }},
        {"file", [](const Json::Value&) -> AbstractType { return FileType{}; }},
        {"data", [](const Json::Value&) -> AbstractType { return DataType{}; }},
        {"read_only",
         [](const Json::Value& json) -> AbstractType {
             return ReadOnlyType{UnserializeTypeFromJson(json["underlying_type"])};
         }},
        {"enum",
         [](const Json::Value& json) -> AbstractType {
             EnumType record;
             forEachListEntry(json["choices"], [&](const Json::Value& choice) {
                 record.choices.push_back(choice["value"].asString());
             });
             return record;
         }},
        {"union",
         [](const Json::Value& json) -> AbstractType {
             return UnionType{namedTypesFromJson(json["value_types"]), json["full"].asBool()};
         }},
    };
    return kReaders;
}

}  // namespace

Json::Value SerializeTypeToJson(const AbstractType& type) {
    Json::Value json(Json::objectValue);
    json["variety"] = varietyName(type.tag());
    std::visit(MemberWriter{json}, type.variant());
    return json;
}

AbstractType UnserializeTypeFromJson(const Json::Value& json) {
    // A description that is not an object (or null) fails in jsoncpp's member access.
    const std::string variety = json["variety"].asString();
    auto found = readers().find(variety);
    if (found == readers().end()) {
        throw AbstractTypeException("Could not unserialize json : " + variety + " is an unknown variety");
    }
    return found->second(json);
}

}  // namespace ovtx::config::abstract_variable::abstract_type::v1
