#include "config/abstract_variable/value_json.h"

#include <json/writer.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <limits>
#include <stdexcept>
#include <string_view>
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

// Builds a Json::Value from the walk's events.
class JsonValueOutput {
  public:
    Json::Value& result() { return m_root; }

    void null() { place() = Json::Value(); }
    void boolean(bool value) { place() = Json::Value(value); }
    void integer(std::int64_t value) { place() = Json::Value(static_cast<Json::Int64>(value)); }
    void string(std::string value) { place() = Json::Value(value); }
    void key(const std::string& name) { m_key = name; }
    void beginObject() { open(Json::objectValue); }
    void endObject() { m_open.pop_back(); }
    void beginArray() { open(Json::arrayValue); }
    void endArray() { m_open.pop_back(); }

  private:
    // Where the next value goes: the root, the end of the open array, or the open object's member
    // of the last key (a repeated key replaces the member's value).
    Json::Value& place() {
        if (m_open.empty()) {
            return m_root;
        }
        Json::Value& container = *m_open.back();
        return container.isArray() ? container.append(Json::Value()) : container[m_key];
    }
    void open(Json::ValueType kind) {
        Json::Value& container = place();
        container = Json::Value(kind);
        m_open.push_back(&container);
    }

    Json::Value m_root;
    std::vector<Json::Value*> m_open;  // members of a Json::Value keep their address
    std::string m_key;
};

// Styled JSON text from the walk's events, byte for byte what Json::StyledWriter writes for the
// Json::Value that the same walk builds: members sorted by key (bytes compared as unsigned, a
// repeated key keeping its last value), three spaces of indentation, and an array on one line,
// "[ a, b ]", when it has fewer than 25 elements, none of them a non-empty array or object, and the
// line stays under 74 characters. The events are first kept as a tree of nodes over one character
// buffer, since neither the order of members nor the layout of an array is known before its end.
class StyledJsonText {
  public:
    // Room for a small answer from the start, as most answers are.
    StyledJsonText() {
        m_nodes.reserve(64);
        m_chars.reserve(1024);
        m_open.reserve(16);
        m_order.reserve(64);
    }

    void null() { scalar("null"); }
    void boolean(bool value) { scalar(value ? "true" : "false"); }
    void integer(std::int64_t value) {
        char digits[24];
        const auto [end, error] = std::to_chars(digits, digits + sizeof digits, value);
        scalar(std::string_view(digits, static_cast<std::size_t>(end - digits)));
    }
    void string(std::string value) {
        if (needsEscapes(value)) {
            // Rare: jsoncpp's own escaping, through its writer.
            std::string quoted = Json::StyledWriter().write(Json::Value(value));
            quoted.pop_back();
            own(std::move(quoted), false);
        } else if (value.size() >= kOwnedTextSize) {
            own(std::move(value), true);
        } else {
            const std::uint32_t offset = here();
            m_chars.push_back('"');
            m_chars.append(value);
            m_chars.push_back('"');
            add(Kind::scalar, offset);
        }
    }
    void key(const std::string& name) {
        m_keyOffset = here();
        m_keyLength = static_cast<std::uint32_t>(name.size());
        m_chars.append(name);
    }
    void beginObject() { m_open.push_back(add(Kind::object, here())); }
    void endObject() { m_open.pop_back(); }
    void beginArray() { m_open.push_back(add(Kind::array, here())); }
    void endArray() { m_open.pop_back(); }

    std::string text() {
        m_text.reserve(m_chars.size() + m_ownedBytes + m_nodes.size() * 8);
        if (!m_nodes.empty()) {
            write(0);
        }
        m_text.push_back('\n');
        return std::move(m_text);
    }

  private:
    // A scalar's text is in m_chars, or, for a long text kept whole to spare copies, in m_owned.
    enum class Kind : std::uint8_t { scalar, owned, array, object };
    static constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
    static constexpr std::size_t kRightMargin = 74;
    static constexpr std::size_t kIndent = 3;
    static constexpr std::size_t kOwnedTextSize = 256;

    struct Node {
        Kind kind;
        bool quote;  // an owned text without its quotes
        std::uint32_t keyOffset;
        std::uint32_t keyLength;
        std::uint32_t textOffset;  // a scalar's JSON text in m_chars
        std::uint32_t textLength;
        std::uint32_t firstChild;
        std::uint32_t lastChild;
        std::uint32_t next;
        std::uint32_t count;
    };

    // What jsoncpp escapes: quotes, backslashes, control characters and every byte above 127.
    static bool needsEscapes(std::string_view text) {
        return std::any_of(text.begin(), text.end(), [](char c) {
            const auto byte = static_cast<unsigned char>(c);
            return byte == '\\' || byte == '"' || byte < 0x20 || byte > 0x7F;
        });
    }

    std::uint32_t here() const { return static_cast<std::uint32_t>(m_chars.size()); }

    void scalar(std::string_view text) {
        const std::uint32_t offset = here();
        m_chars.append(text);
        add(Kind::scalar, offset);
    }

    std::uint32_t add(Kind kind, std::uint32_t textOffset) {
        const auto index = static_cast<std::uint32_t>(m_nodes.size());
        m_nodes.push_back(
            {kind, false, m_keyOffset, m_keyLength, textOffset, here() - textOffset, kNone, kNone, kNone, 0});
        if (!m_open.empty()) {
            Node& parent = m_nodes[m_open.back()];
            if (parent.count++ == 0) {
                parent.firstChild = index;
            } else {
                m_nodes[parent.lastChild].next = index;
            }
            parent.lastChild = index;
        }
        return index;
    }

    void own(std::string text, bool quote) {
        const std::uint32_t index = add(Kind::owned, here());
        m_nodes[index].quote = quote;
        m_nodes[index].textOffset = static_cast<std::uint32_t>(m_owned.size());
        m_nodes[index].textLength = static_cast<std::uint32_t>(text.size() + (quote ? 2 : 0));
        m_ownedBytes += text.size() + 2;
        m_owned.push_back(std::move(text));
    }

    static bool isContainer(const Node& node) {
        return node.kind == Kind::array || node.kind == Kind::object;
    }

    std::string_view keyOf(std::uint32_t node) const {
        return std::string_view(m_chars).substr(m_nodes[node].keyOffset, m_nodes[node].keyLength);
    }
    std::string_view textOf(const Node& node) const {
        return std::string_view(m_chars).substr(node.textOffset, node.textLength);
    }
    // The length of an element on an array's single line: a scalar, "[]" or "{}".
    std::size_t inlineLength(const Node& node) const {
        return node.kind == Kind::scalar ? node.textLength : 2;
    }

    void write(std::uint32_t index) {
        const Node& node = m_nodes[index];
        if (node.kind == Kind::scalar) {
            m_text.append(textOf(node));
        } else if (node.kind == Kind::owned) {
            if (node.quote) {
                m_text.push_back('"');
            }
            m_text.append(m_owned[node.textOffset]);
            if (node.quote) {
                m_text.push_back('"');
            }
        } else if (node.count == 0) {
            m_text.append(node.kind == Kind::array ? "[]" : "{}");
        } else if (node.kind == Kind::array) {
            writeArray(node);
        } else {
            writeObject(node);
        }
    }

    void writeObject(const Node& node) {
        // The members' order goes on a stack shared by every level; positions, not iterators, as
        // deeper levels grow it.
        const std::size_t first = m_order.size();
        for (std::uint32_t child = node.firstChild; child != kNone; child = m_nodes[child].next) {
            m_order.push_back(child);
        }
        std::sort(m_order.begin() + static_cast<std::ptrdiff_t>(first), m_order.end(),
                  [this](std::uint32_t a, std::uint32_t b) {
                      const int order = keyOf(a).compare(keyOf(b));
                      return order != 0 ? order < 0 : a < b;
                  });
        writeWithIndent("{");
        indent();
        const std::size_t end = m_order.size();
        bool written = false;
        for (std::size_t position = first; position < end; ++position) {
            const std::uint32_t child = m_order[position];
            if (position + 1 < end && keyOf(m_order[position + 1]) == keyOf(child)) {
                continue;  // a later value for the same key replaced this one
            }
            if (written) {
                m_text.push_back(',');
            }
            written = true;
            writeIndent();
            appendQuotedKey(keyOf(child));
            m_text.append(" : ");
            write(child);
        }
        m_order.resize(first);
        unindent();
        writeWithIndent("}");
    }

    void writeArray(const Node& node) {
        if (!isMultiline(node)) {
            m_text.append("[ ");
            for (std::uint32_t child = node.firstChild; child != kNone; child = m_nodes[child].next) {
                if (child != node.firstChild) {
                    m_text.append(", ");
                }
                write(child);
            }
            m_text.append(" ]");
            return;
        }
        writeWithIndent("[");
        indent();
        for (std::uint32_t child = node.firstChild; child != kNone; child = m_nodes[child].next) {
            writeIndent();
            write(child);
            if (m_nodes[child].next != kNone) {
                m_text.push_back(',');
            }
        }
        unindent();
        writeWithIndent("]");
    }

    bool isMultiline(const Node& node) const {
        if (node.count * 3 >= kRightMargin) {
            return true;
        }
        std::size_t lineLength = 4 + (node.count - 1) * 2;
        for (std::uint32_t child = node.firstChild; child != kNone; child = m_nodes[child].next) {
            const Node& element = m_nodes[child];
            if (isContainer(element) && element.count > 0) {
                return true;
            }
            lineLength += inlineLength(element);
        }
        return lineLength >= kRightMargin;
    }

    // A new line at the current indentation, unless the text already ends with one or with a blank
    // (after a key, or an indentation already written).
    void writeIndent() {
        if (!m_text.empty()) {
            const char last = m_text.back();
            if (last == ' ') {
                return;
            }
            if (last != '\n') {
                m_text.push_back('\n');
            }
        }
        m_text.append(m_indent, ' ');
    }
    void writeWithIndent(std::string_view text) {
        writeIndent();
        m_text.append(text);
    }
    void indent() { m_indent += kIndent; }
    void unindent() { m_indent -= kIndent; }

    // jsoncpp writes a member's name as a C string: it ends at the first NUL.
    void appendQuotedKey(std::string_view name) {
        name = name.substr(0, std::min(name.size(), name.find('\0')));
        if (needsEscapes(name)) {
            m_text.append(Json::valueToQuotedString(std::string(name).c_str()));
            return;
        }
        m_text.push_back('"');
        m_text.append(name);
        m_text.push_back('"');
    }

    std::vector<Node> m_nodes;
    std::string m_chars;
    std::vector<std::string> m_owned;
    std::size_t m_ownedBytes = 0;
    std::vector<std::uint32_t> m_open;
    std::uint32_t m_keyOffset = 0;
    std::uint32_t m_keyLength = 0;
    std::vector<std::uint32_t> m_order;
    std::string m_text;
    std::size_t m_indent = 0;
};

// Walks an object and its type record together and tells `Output` what it finds, as events:
// scalars, keys, and the beginnings and ends of objects and arrays.
template <typename Output>
class ValueSerializer : public IObjectVisitor {
  public:
    static constexpr const char* kMismatch =
        "Cannot serialize object : given type does not match the given object";

    ValueSerializer(const std::vector<std::string>& filter, const AbstractType& type, Output& output)
        : m_filter(filter), m_type(type), m_output(output) {}

    // The value of `object`, or null when its variety is filtered out.
    static void serialize(IAbstractObject& object, const AbstractType& type,
                          const std::vector<std::string>& filter, Output& output) {
        if (!filter.empty()) {
            const std::string variety = getTypeString(&object);
            if (std::find(filter.begin(), filter.end(), variety) != filter.end()) {
                output.null();
                return;
            }
        }
        ValueSerializer serializer(filter, type, output);
        object.accept(serializer);
    }

    void visit(IUnion& object) override {
        const auto& record = expect<UnionType>();
        const std::string current = object.getCurrentType();
        m_output.beginObject();
        m_output.key(kTypeKey);
        m_output.string(current);
        m_output.key(kValueKey);
        m_output.beginObject();
        for (const auto& alternative : record.valueTypes) {
            if (record.full || alternative.name == current) {
                m_output.key(alternative.name);
                serializeChild(object.getValue(alternative.name), *alternative.type);
            }
        }
        m_output.endObject();
        m_output.endObject();
    }
    void visit(IEnum& object) override {
        expect<EnumType>();
        m_output.string(object.get());
    }
    void visit(IReadOnly& object) override {
        serializeChild(object.getUnderlying(), *expect<ReadOnlyType>().underlying);
    }
    void visit(IData& object) override {
        expect<DataType>();
        const std::vector<std::uint8_t> bytes = readAll(*object.newReader());
        m_output.string(base64Encode(bytes.data(), bytes.size()));
    }
    void visit(IFile& object) override {
        expect<FileType>();
        const FileContent content = object.get();
        m_output.beginObject();
        m_output.key(kMimeTypeKey);
        m_output.string(content.mimeType);
        m_output.key(kDataKey);
        m_output.string(base64Encode(content.bytes.data(), content.bytes.size()));
        m_output.endObject();
    }
    void visit(IConstructableObjectMap& object) override {
        const auto& record = expect<ConstructableObjectMapType>();
        // The configuration comes as a read-only view of an object of the configuration type.
        const AbstractType configurationView = ReadOnlyType{*record.configuration};
        m_output.beginObject();
        for (std::int32_t id : object.ids()) {
            const ConstructableElement element = object.get(id);
            m_output.key(std::to_string(id));
            m_output.beginObject();
            m_output.key(kConfigurationKey);
            serializeChild(element.first, configurationView);
            m_output.key(kStateKey);
            serializeChild(element.second, *record.state);
            m_output.endObject();
        }
        m_output.endObject();
    }
    void visit(IMap<std::string>& object) override {
        serializeMap(object, [](const std::string& id) { return id; });
    }
    void visit(IMap<std::int32_t>& object) override {
        serializeMap(object, [](std::int32_t id) { return std::to_string(id); });
    }
    void visit(IVector& object) override {
        const AbstractType& element = *expect<VectorType>().element;
        m_output.beginArray();
        const std::int32_t size = object.size();
        for (std::int32_t index = 0; index < size; ++index) {
            serializeChild(object.get(index), element);
        }
        m_output.endArray();
    }
    void visit(IFunction&) override {
        expect<FunctionType>();
        m_output.null();
    }
    void visit(IVariable<bool>& object) override {
        expect<VariableType<bool>>();
        m_output.boolean(object.get());
    }
    void visit(IVariable<std::int64_t>& object) override {
        expect<VariableType<std::int64_t>>();
        m_output.integer(object.get());
    }
    void visit(IVariable<std::int32_t>& object) override {
        expect<VariableType<std::int32_t>>();
        m_output.integer(object.get());
    }
    void visit(IVariable<std::string>& object) override {
        expect<VariableType<std::string>>();
        m_output.string(object.get());
    }
    void visit(IStruct& object) override {
        const auto& record = expect<StructType>();
        m_output.beginObject();
        for (const auto& child : record.children) {
            m_output.key(child.name);
            serializeChild(object.getChild(child.name), *child.type);
        }
        m_output.endObject();
    }

  private:
    static inline const std::string kTypeKey = "_type_";
    static inline const std::string kValueKey = "_value_";
    static inline const std::string kMimeTypeKey = "MimeType";
    static inline const std::string kDataKey = "Data";
    static inline const std::string kConfigurationKey = "_configuration_";
    static inline const std::string kStateKey = "_state_";

    template <typename Record>
    const Record& expect() const {
        return expectRecord<Record>(m_type, kMismatch);
    }

    void serializeChild(const ObjectFactory& factory, const AbstractType& type) {
        const std::unique_ptr<IAbstractObject> view = factory();
        serialize(*view, type, m_filter, m_output);
    }

    template <typename K, typename KeyText>
    void serializeMap(IMap<K>& object, KeyText keyText) {
        const AbstractType& element = *expect<MapType<K>>().element;
        m_output.beginObject();
        for (const K& id : object.ids()) {
            m_output.key(keyText(id));
            serializeChild(object.get(id), element);
        }
        m_output.endObject();
    }

    const std::vector<std::string>& m_filter;
    const AbstractType& m_type;
    Output& m_output;
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
    JsonValueOutput output;
    ValueSerializer<JsonValueOutput>::serialize(*object, type, filter, output);
    return std::move(output.result());
}

std::string SerializeValueToStyledJson(IAbstractObject* object, const AbstractType& type,
                                       const std::vector<std::string>& filter) {
    StyledJsonText output;
    ValueSerializer<StyledJsonText>::serialize(*object, type, filter, output);
    return output.text();
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
