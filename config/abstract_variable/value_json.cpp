#include "config/abstract_variable/value_json.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <limits>
#include <stdexcept>
#include <thread>

#include "config/abstract_variable/base64.h"
#include "config/abstract_variable/visitors.h"
#include "cpp_utils/async_processor/parallel_foreach.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

namespace {

using abstract_type::v1::NamedType;
using cpp_utils::async_processor::v2::parallelForeach_ext;

constexpr std::size_t kFirstDataChunk = 1000;

// The record of `type` for a visit of the matching kind; any other tag fails with `text`.
template <typename Record>
const Record& expectRecord(const AbstractType& type, const char* text) {
    if (!type.is<Record>()) {
        throw AbstractVariableException(text);
    }
    return type.get<Record>();
}

// Reads a data object whole: the chunk starts at 1000 bytes and doubles after each read that gave
// bytes, so that a large object of unknown size takes few reads.
std::vector<std::uint8_t> readAll(IStreamReceiver& reader) {
    std::vector<std::uint8_t> bytes;
    std::size_t chunk = kFirstDataChunk;
    for (;;) {
        const std::size_t used = bytes.size();
        bytes.resize(used + chunk);
        const std::size_t received = reader.receive(bytes.data() + used, chunk);
        bytes.resize(used + received);
        if (received == 0) {
            return bytes;
        }
        chunk *= 2;
    }
}

void sendAll(IStreamSender& writer, const std::vector<std::uint8_t>& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        sent += writer.send(bytes.data() + sent, bytes.size() - sent);
    }
}

Json::Value encode(const std::vector<std::uint8_t>& bytes) {
    return Json::Value(base64Encode(bytes.data(), bytes.size()));
}

// A decimal id: the whole text, nothing before or after.
template <typename Integer>
bool parseDecimal(const std::string& text, Integer& value) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end && !text.empty();
}

std::int32_t parseKey(const std::string& key) {
    std::int32_t id = 0;
    if (!parseDecimal(key, id)) {
        throw AbstractVariableException("cannot parse: " + key);
    }
    return id;
}

class ValueSerializer : public IObjectVisitor {
  public:
    static constexpr const char* kMismatch =
        "Cannot serialize object : given type does not match the given object";

    ValueSerializer(const std::vector<std::string>& filter, const AbstractType& type)
        : m_filter(filter), m_type(type) {}

    Json::Value& result() { return m_result; }

    void visit(IUnion& object) override {
        const auto& record = expect<UnionType>();
        const std::string current = object.getCurrentType();
        m_result = Json::Value(Json::objectValue);
        m_result["_type_"] = current;
        Json::Value& values = m_result["_value_"] = Json::Value(Json::objectValue);
        for (const auto& alternative : record.valueTypes) {
            if (record.full || alternative.name == current) {
                values[alternative.name] = serialize(object.getValue(alternative.name), *alternative.type);
            }
        }
    }
    void visit(IEnum& object) override {
        expect<EnumType>();
        m_result = object.get();
    }
    void visit(IReadOnly& object) override {
        m_result = serialize(object.getUnderlying(), *expect<ReadOnlyType>().underlying);
    }
    void visit(IData& object) override {
        expect<DataType>();
        m_result = encode(readAll(*object.newReader()));
    }
    void visit(IFile& object) override {
        expect<FileType>();
        const FileContent content = object.get();
        m_result = Json::Value(Json::objectValue);
        m_result["MimeType"] = content.mimeType;
        m_result["Data"] = encode(content.bytes);
    }
    void visit(IConstructableObjectMap& object) override {
        const auto& record = expect<ConstructableObjectMapType>();
        // The configuration comes as a read-only view of an object of the configuration type.
        const AbstractType configurationView = ReadOnlyType{*record.configuration};
        m_result = Json::Value(Json::objectValue);
        for (std::int32_t id : object.ids()) {
            const ConstructableElement element = object.get(id);
            Json::Value& entry = m_result[std::to_string(id)] = Json::Value(Json::objectValue);
            entry["_configuration_"] = serialize(element.first(), configurationView);
            entry["_state_"] = serialize(element.second, *record.state);
        }
    }
    void visit(IMap<std::string>& object) override {
        serializeMap(object, [](const std::string& id) { return id; });
    }
    void visit(IMap<std::int32_t>& object) override {
        serializeMap(object, [](std::int32_t id) { return std::to_string(id); });
    }
    void visit(IVector& object) override {
        const AbstractType& element = *expect<VectorType>().element;
        m_result = Json::Value(Json::arrayValue);
        const std::int32_t size = object.size();
        for (std::int32_t index = 0; index < size; ++index) {
            m_result.append(serialize(object.get(index), element));
        }
    }
    void visit(IFunction&) override {
        expect<FunctionType>();
        m_result = Json::Value();
    }
    void visit(IVariable<bool>& object) override { serializeLeaf(object); }
    void visit(IVariable<std::int64_t>& object) override { serializeLeaf(object); }
    void visit(IVariable<std::int32_t>& object) override { serializeLeaf(object); }
    void visit(IVariable<std::string>& object) override { serializeLeaf(object); }
    void visit(IStruct& object) override {
        const auto& record = expect<StructType>();
        m_result = Json::Value(Json::objectValue);
        for (const auto& child : record.children) {
            m_result[child.name] = serialize(object.getChild(child.name), *child.type);
        }
    }

  private:
    template <typename Record>
    const Record& expect() const {
        return expectRecord<Record>(m_type, kMismatch);
    }

    Json::Value serialize(const ObjectFactory& factory, const AbstractType& type) {
        return serialize(factory(), type);
    }
    template <typename Object>
    Json::Value serialize(const std::unique_ptr<Object>& view, const AbstractType& type) {
        return SerializeValueToJson(view.get(), type, m_filter);
    }

    template <typename T>
    void serializeLeaf(IVariable<T>& object) {
        expect<VariableType<T>>();
        if constexpr (std::is_same_v<T, std::int64_t>) {
            m_result = Json::Value(static_cast<Json::Int64>(object.get()));
        } else {
            m_result = Json::Value(object.get());
        }
    }

    template <typename K, typename KeyText>
    void serializeMap(IMap<K>& object, KeyText keyText) {
        const AbstractType& element = *expect<MapType<K>>().element;
        m_result = Json::Value(Json::objectValue);
        for (const K& id : object.ids()) {
            m_result[keyText(id)] = serialize(object.get(id), element);
        }
    }

    Json::Value m_result;
    const std::vector<std::string>& m_filter;
    const AbstractType& m_type;
};

class ValueUnSerializer : public IObjectVisitor {
  public:
    static constexpr const char* kMismatch =
        "Cannot unserialize object : given type does not match the given object";

    struct InvalidTypeException : AbstractVariableException {
        InvalidTypeException() : AbstractVariableException("Cannot unserialize json: incorrect type") {}
    };

    ValueUnSerializer(const AbstractType& type, const Json::Value& json, bool allowPartial, bool parallel)
        : m_type(type), m_json(json), m_allowPartial(allowPartial), m_parallel(parallel) {}

    // Unserialises one sub-value and appends its log to `log`, even when it fails.
    static void unserializeInto(std::string& log, IAbstractObject& object, const AbstractType& type,
                                const Json::Value& json, bool allowPartial, bool parallel) {
        ValueUnSerializer visitor(type, json, allowPartial, parallel);
        try {
            object.accept(visitor);
        } catch (...) {
            log += visitor.m_log;
            throw;
        }
        log += visitor.m_log;
    }

    void visit(IUnion& object) override {
        const auto& record = expect<UnionType>();
        expectNullOr(Json::objectValue, "Not an union\n");
        if (!m_allowPartial) {
            require(m_json.isMember("_type_"), "Field '_type_' is missing\n",
                    "Union description must contain field '_type_'");
            require(m_json.isMember("_value_"), "Field '_value_' is missing\n",
                    "Union description must contain field '_value_'");
        }
        // A missing "_type_" reads as the empty name, and a missing alternative as null: a tolerant
        // caller gets each leaf's own complaint rather than a silent skip.
        object.setCurrentType(m_json["_type_"].asString());
        const Json::Value& values = m_json["_value_"];
        if (record.full) {
            for (const auto& alternative : record.valueTypes) {
                unserialize(object.getValue(alternative.name), *alternative.type, values[alternative.name]);
            }
            return;
        }
        const std::string current = object.getCurrentType();
        const auto found =
            std::find_if(record.valueTypes.begin(), record.valueTypes.end(),
                         [&](const NamedType& alternative) { return alternative.name == current; });
        if (found == record.valueTypes.end()) {
            throw AbstractVariableException("Invalid union type");
        }
        unserialize(object.getValue(current), *found->type, values[current]);
    }
    void visit(IEnum& object) override {
        expect<EnumType>();
        if (!m_json.isString()) {
            throw InvalidTypeException();
        }
        object.set(m_json.asString());
    }
    void visit(IReadOnly&) override {
        expect<ReadOnlyType>();
        if (!m_allowPartial) {
            throw AbstractVariableException("cannot unserialize read only variable");
        }
    }
    void visit(IData& object) override {
        expect<DataType>();
        const std::vector<std::uint8_t> bytes = base64Decode(m_json.asString());
        std::unique_ptr<IStreamSender> writer = object.newWriter();
        sendAll(*writer, bytes);
    }
    void visit(IFile& object) override {
        expect<FileType>();
        expectNullOr(Json::objectValue, "Not a file\n");
        const Json::Value& data = m_json["Data"];
        const Json::Value& mimeType = m_json["MimeType"];
        if (!data.isString() || !mimeType.isString()) {
            throw InvalidTypeException();
        }
        const std::vector<std::uint8_t> bytes = base64Decode(data.asString());
        object.set(mimeType.asString(), bytes.data(), bytes.size());
    }
    void visit(IConstructableObjectMap& object) override;
    void visit(IMap<std::string>& object) override {
        unserializeMap(object, [](const std::string& key) { return key; });
    }
    void visit(IMap<std::int32_t>& object) override { unserializeMap(object, parseKey); }
    void visit(IVector& object) override {
        const AbstractType& element = *expect<VectorType>().element;
        expectNullOr(Json::arrayValue, "Not an array\n");
        const auto wanted = static_cast<std::int32_t>(m_json.size());
        object.resize(wanted);
        const std::int32_t reached = std::min(wanted, object.size());
        for (std::int32_t index = 0; index < reached; ++index) {
            unserialize(object.get(index), element, m_json[static_cast<Json::ArrayIndex>(index)]);
        }
    }
    void visit(IFunction&) override { expect<FunctionType>(); }
    void visit(IVariable<bool>& object) override {
        expect<VariableType<bool>>();
        if (m_json.isBool()) {
            object.set(m_json.asBool());
        } else if (m_json.type() == Json::intValue) {
            object.set(m_json.asInt64() != 0);
        } else {
            invalid("Not a boolean\n");
        }
    }
    void visit(IVariable<std::int64_t>& object) override {
        expect<VariableType<std::int64_t>>();
        if (m_json.isBool()) {
            object.set(m_json.asBool() ? 1 : 0);
        } else if (m_json.type() == Json::intValue || m_json.type() == Json::uintValue) {
            object.set(m_json.asInt64());
        } else {
            invalid("Not a int64\n");
        }
    }
    void visit(IVariable<std::int32_t>& object) override {
        expect<VariableType<std::int32_t>>();
        if (m_json.type() != Json::intValue) {
            m_log += "Not an int32 variable\n";
            // Alone among the leaves, an int32 tolerates a number that is not a plain integer.
            if (m_allowPartial) {
                return;
            }
            throw InvalidTypeException();
        }
        const Json::Int64 value = m_json.asInt64();
        if (value < std::numeric_limits<std::int32_t>::min() ||
            value > std::numeric_limits<std::int32_t>::max()) {
            throw AbstractVariableException("unsigned integer out of signed int range");
        }
        object.set(static_cast<std::int32_t>(value));
    }
    void visit(IVariable<std::string>& object) override {
        expect<VariableType<std::string>>();
        if (!m_json.isString()) {
            invalid("Not a string \n");
        }
        object.set(m_json.asString());
    }
    void visit(IStruct& object) override {
        const auto& record = expect<StructType>();
        expectNullOr(Json::objectValue, "Not a struct\n");
        Json::ArrayIndex matched = 0;
        for (const auto& child : record.children) {
            const Json::Value* member = m_json.find(child.name.data(), child.name.data() + child.name.size());
            if (member == nullptr) {
                const std::string text = "Missing child \"" + child.name + "\" in struct";
                m_log += text + "\n";
                if (!m_allowPartial) {
                    throw AbstractVariableException(text);
                }
                continue;
            }
            unserialize(object.getChild(child.name), *child.type, *member);
            ++matched;
        }
        if (matched == m_json.size() || m_allowPartial) {
            return;
        }
        for (const std::string& name : m_json.getMemberNames()) {
            const bool known = std::any_of(record.children.begin(), record.children.end(),
                                           [&](const NamedType& child) { return child.name == name; });
            if (!known) {
                const std::string text = "Unknown child \"" + name + "\" in struct";
                m_log += text + "\n";
                throw AbstractVariableException(text);
            }
        }
    }

  private:
    template <typename Record>
    const Record& expect() const {
        return expectRecord<Record>(m_type, kMismatch);
    }

    [[noreturn]] void invalid(const char* logLine) {
        m_log += logLine;
        throw InvalidTypeException();
    }

    // JSON null stands for an empty object or array.
    void expectNullOr(Json::ValueType kind, const char* logLine) {
        if (!m_json.isNull() && m_json.type() != kind) {
            invalid(logLine);
        }
    }

    void require(bool present, const char* logLine, const char* failure) {
        if (!present) {
            m_log += logLine;
            throw AbstractVariableException(failure);
        }
    }

    void unserialize(const ObjectFactory& factory, const AbstractType& type, const Json::Value& json) {
        std::unique_ptr<IAbstractObject> view = factory();
        unserializeInto(m_log, *view, type, json, m_allowPartial, m_parallel);
    }

    template <typename K, typename ParseKey>
    void unserializeMap(IMap<K>& object, ParseKey parse) {
        const AbstractType& element = *expect<MapType<K>>().element;
        expectNullOr(Json::objectValue, "Not a map\n");
        for (const K& id : object.ids()) {
            object.remove(id);
        }
        for (auto member = m_json.begin(); member != m_json.end(); ++member) {
            const K key = parse(member.name());
            object.add(key);
            unserialize(object.get(key), element, *member);
        }
    }

  private:
    std::string m_log;
    const AbstractType& m_type;
    const Json::Value& m_json;
    bool m_allowPartial;
    bool m_parallel;
};

// One element of a constructable map in JSON, with the log of its unserialising.
struct MapElement {
    std::int32_t id;
    const Json::Value* value;
    std::string log;
};

// Builds a temporary element before the map is cleared, so that whatever the elements share stays
// alive through the clearing. The old elements go in parallel; the temporary one goes with the
// clearing that follows. Returns the temporary element's state factory, which keeps its state.
ObjectFactory keepSharedStateThroughClearing(IConstructableObjectMap& map, std::size_t workers) {
    std::vector<std::int32_t> oldIds = map.ids();
    std::unique_ptr<IAbstractObject> blank = map.newConfiguration()();
    const std::int32_t temporary = map.add(*blank);
    ObjectFactory state = map.get(temporary).second;
    parallelForeach_ext(oldIds, workers, [&map](std::int32_t id) { map.remove(id); });
    return state;
}

void ValueUnSerializer::visit(IConstructableObjectMap& object) {
    const auto& record = expect<ConstructableObjectMapType>();
    expectNullOr(Json::objectValue, "Not a constructable map\n");
    const std::size_t workers = m_parallel ? std::max(1u, std::thread::hardware_concurrency()) : 1;

    ObjectFactory temporaryState;
    if (!object.knowsStateShape()) {
        temporaryState = keepSharedStateThroughClearing(object, workers);
    }
    for (std::int32_t id : object.ids()) {
        object.remove(id);
    }

    std::vector<MapElement> elements;
    elements.reserve(m_json.size());
    for (auto member = m_json.begin(); member != m_json.end(); ++member) {
        elements.push_back({parseKey(member.name()), &*member, {}});
    }

    // A new configuration object is of the plain configuration type, whatever wraps it in the map.
    const AbstractType& configurationType = record.configuration->is<ReadOnlyType>()
                                                ? *record.configuration->get<ReadOnlyType>().underlying
                                                : *record.configuration;
    const bool allowPartial = m_allowPartial;
    std::exception_ptr failure;
    try {
        parallelForeach_ext(elements, workers, [&](MapElement& element) {
            std::unique_ptr<IAbstractObject> configuration = object.newConfiguration()();
            unserializeInto(element.log, *configuration, configurationType,
                            (*element.value)["_configuration_"], allowPartial, false);
            object.add(element.id, *configuration);
            std::unique_ptr<IAbstractObject> state = object.get(element.id).second();
            unserializeInto(element.log, *state, *record.state, (*element.value)["_state_"], allowPartial,
                            false);
        });
    } catch (...) {
        failure = std::current_exception();
    }

    std::vector<const MapElement*> byKey;
    byKey.reserve(elements.size());
    for (const MapElement& element : elements) {
        byKey.push_back(&element);
    }
    std::stable_sort(byKey.begin(), byKey.end(),
                     [](const MapElement* a, const MapElement* b) { return a->id < b->id; });
    for (const MapElement* element : byKey) {
        m_log += element->log;
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

class VectorSize : public TypeSpecificCommand {
  public:
    using TypeSpecificCommand::visit;
    void visit(IVector& object) override { m_size = object.size(); }
    void visit(IReadOnly& object) override { object.getUnderlying()()->accept(*this); }
    Json::Value result() const { return Json::Value(m_size); }

  private:
    std::int32_t m_size = 0;
};

class MapEltsList : public TypeSpecificCommand {
  public:
    using TypeSpecificCommand::visit;
    void visit(IConstructableObjectMap& object) override { list(object.ids()); }
    void visit(IMap<std::int32_t>& object) override { list(object.ids()); }
    void visit(IReadOnly& object) override { object.getUnderlying()()->accept(*this); }
    const Json::Value& result() const { return m_ids; }

  private:
    void list(const std::vector<std::int32_t>& ids) {
        for (std::int32_t id : ids) {
            m_ids.append(id);
        }
    }

    Json::Value m_ids{Json::arrayValue};
};

}  // namespace

Json::Value SerializeValueToJson(IAbstractObject* object, const AbstractType& type,
                                 const std::vector<std::string>& filter) {
    if (!filter.empty()) {
        const std::string variety = getTypeString(object);
        if (std::find(filter.begin(), filter.end(), variety) != filter.end()) {
            return Json::Value();
        }
    }
    ValueSerializer serializer(filter, type);
    object->accept(serializer);
    return std::move(serializer.result());
}

std::string UnserializeValueFromJson(const Json::Value& json, IAbstractObject* object,
                                     const AbstractType& type, bool allowPartial, bool parallel) {
    std::string log;
    ValueUnSerializer::unserializeInto(log, *object, type, json, allowPartial, parallel);
    return log;
}

Json::Value SerializeSizeToJson(IAbstractObject* object) {
    VectorSize command;
    object->accept(command);
    return command.result();
}

Json::Value SerializeElementIdsToJson(IAbstractObject* object) {
    MapEltsList command;
    object->accept(command);
    return command.result();
}

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
