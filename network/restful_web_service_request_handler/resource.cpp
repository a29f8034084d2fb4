#include "network/restful_web_service_request_handler/resource.h"

#include <json/reader.h>
#include <json/writer.h>

#include <deque>
#include <stdexcept>
#include <utility>

#include "config/abstract_variable/abstract_type_json.h"
#include "config/abstract_variable/raw_value.h"
#include "config/abstract_variable/value_json.h"
#include "config/abstract_variable/variable_path.h"
#include "config/abstract_variable/visitors.h"
#include "network/restful_web_service_request_handler/md5_text.h"
#include "network/restful_web_service_request_handler/multipart_form_data.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {

using namespace av;

namespace {

constexpr std::size_t kReadBuffer = 1000;
// The body of an answer that has nothing to tell.
const std::string kEmptyJsonText = "\"\"";

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

void sendAll(IStreamSender& sink, const std::uint8_t* bytes, std::size_t size) {
    for (std::size_t sent = 0; sent < size;) {
        sent += sink.send(bytes + sent, size - sent);
    }
}
void sendAll(IStreamSender& sink, const Bytes& bytes) {
    sendAll(sink, bytes.data(), bytes.size());
}
void sendAll(IStreamSender& sink, const std::string& text) {
    sendAll(sink, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

std::string textOf(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

// A sink that collects bytes and writes them into an object as its raw value when it closes.
class RawSetter : public IStreamSender {
  public:
    explicit RawSetter(IAbstractObject& object) : m_object(&object) {
        if (!getObjectType(object).is<FileType>()) {
            m_sink = setRawValue(&object);
        }
    }
    ~RawSetter() override {
        try {
            close();
        } catch (...) {
            // As for every sink: a caller that wants the failure closes it.
        }
    }
    std::size_t send(const std::uint8_t* bytes, std::size_t size) override {
        if (m_sink) {
            return m_sink->send(bytes, size);
        }
        m_bytes.insert(m_bytes.end(), bytes, bytes + size);
        return size;
    }
    void close() override {
        if (m_closed) {
            return;
        }
        m_closed = true;
        if (m_sink) {
            m_sink->close();
        } else {
            SetRawValue(m_object, std::move(m_bytes));
        }
    }

  private:
    IAbstractObject* m_object;
    std::unique_ptr<IStreamSender> m_sink;
    Bytes m_bytes;
    bool m_closed = false;
};

// Writes raw bytes into a string, a data object or a file.
void writeRaw(IAbstractObject& object, const Bytes& bytes) {
    RawSetter setter(object);
    sendAll(setter, bytes);
    setter.close();
}

// The body of a request as its format says: JSON, or bytes for raw values and form uploads.
Parameters readParameters(QueryCommand command, DataFormat format, IStreamReceiver& source) {
    Parameters parameters;
    parameters.format = format;
    switch (format) {
        case DataFormat::json:
            parameters.json = parseJsonText(readAll(source));
            break;
        case DataFormat::multipartFormData:
            if (command != QueryCommand::set) {
                throw std::runtime_error("operation not supported");
            }
            [[fallthrough]];
        case DataFormat::raw:
            parameters.raw = readAll(source);
            break;
        default:
            throw std::runtime_error("invalid data format");
    }
    return parameters;
}

std::string writeResult(const CommandResult& result, DataFormat returnFormat,
                        const std::vector<std::string>& filters) {
    switch (returnFormat) {
        case DataFormat::json:
        case DataFormat::heap:
            if (result.object == nullptr) {
                return result.json.isNull() ? kEmptyJsonText : styledJson(result.json);
            }
            return SerializeValueToStyledJson(result.object, *result.type, filters);
        case DataFormat::raw:
            if (result.object == nullptr) {
                return result.json.isNull() ? std::string() : result.json.asString();
            }
            return textOf(readAll(*GetRawValue(result.object)));
        default:
            throw std::runtime_error("invalid return format");
    }
}

// Operations on the elements of containers, by kind.
class ElementCommand : public TypeSpecificCommand {
  public:
    using TypeSpecificCommand::visit;
    explicit ElementCommand(std::int32_t index) : m_index(index) {}

  protected:
    std::int32_t m_index;
};

class Delete : public ElementCommand {
  public:
    using ElementCommand::ElementCommand;
    using ElementCommand::visit;
    void visit(IMap<std::int32_t>& map) override { map.remove(m_index); }
    void visit(IConstructableObjectMap& map) override { map.remove(m_index); }
};

class AddElement : public ElementCommand {
  public:
    using ElementCommand::ElementCommand;
    using ElementCommand::visit;
    void visit(IMap<std::int32_t>& map) override { map.add(m_index); }
    void visit(IConstructableObjectMap& map) override {
        std::unique_ptr<IAbstractObject> configuration = map.newConfiguration()();
        map.add(m_index, *configuration);
    }
};

// The configuration type of a constructable map, read-only wrappers looked through.
const AbstractType& writableType(const AbstractType& type) {
    return type.is<ReadOnlyType>() ? *type.get<ReadOnlyType>().underlying : type;
}

template <typename K>
K mapKey(const std::string& text);
template <>
std::int32_t mapKey<std::int32_t>(const std::string& text) {
    std::size_t used = 0;
    int value = 0;
    try {
        value = std::stoi(text, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used == 0 || used != text.size()) {
        throw std::runtime_error("Invalid map index: " + text);
    }
    return value;
}
template <>
std::string mapKey<std::string>(const std::string& text) {
    return text;
}

class Insert : public TypeSpecificCommand {
  public:
    using TypeSpecificCommand::visit;
    explicit Insert(const Json::Value& value) : m_value(value) {}

    void visit(IVector& vector) override {
        const AbstractType& element = *vector.getTypeFunction()()->element;
        const std::int32_t index = vector.size();
        vector.resize(index + 1);
        UnserializeValueFromJson(m_value, vector.get(index)().get(), element, false, false);
        m_result = index + 1;  // as the element's path addresses it
    }
    void visit(IConstructableObjectMap& map) override {
        const auto type = map.getTypeFunction()();
        std::unique_ptr<IAbstractObject> configuration = map.newConfiguration()();
        UnserializeValueFromJson(m_value, configuration.get(), writableType(*type->configuration), false,
                                 false);
        m_result = map.add(*configuration);
    }
    void visit(IMap<std::int32_t>& map) override { insertMembers(map); }
    void visit(IMap<std::string>& map) override { insertMembers(map); }

    const Json::Value& result() const { return m_result; }

  private:
    template <typename K>
    void insertMembers(IMap<K>& map) {
        if (!m_value.isObject()) {
            throw std::runtime_error("Cannot unserialize json: incorrect type");
        }
        const AbstractType& element = *map.getTypeFunction()()->element;
        for (const std::string& name : m_value.getMemberNames()) {
            const K key = mapKey<K>(name);
            map.add(key);
            UnserializeValueFromJson(m_value[name], map.get(key)().get(), element, false, false);
        }
    }

    const Json::Value& m_value;
    Json::Value m_result;
};

}  // namespace

std::size_t DataSender::send(const std::uint8_t* bytes, std::size_t size) {
    m_bytes->insert(m_bytes->end(), bytes, bytes + size);
    return size;
}

std::size_t DataReceiver::receive(std::uint8_t* buffer, std::size_t size) {
    const std::size_t count = std::min(size, m_bytes->size() - m_position);
    std::copy_n(m_bytes->data() + m_position, count, buffer);
    m_position += count;
    return count;
}

Bytes readAll(IStreamReceiver& source) {
    Bytes bytes;
    std::uint8_t buffer[kReadBuffer];
    while (const std::size_t got = source.receive(buffer, sizeof buffer)) {
        bytes.insert(bytes.end(), buffer, buffer + got);
    }
    return bytes;
}

std::string styledJson(const Json::Value& value) {
    return Json::StyledWriter().write(value);
}

Json::Value parseJsonText(const Bytes& text) {
    Json::Value value;
    if (text.empty()) {
        return value;
    }
    Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    const char* begin = reinterpret_cast<const char*>(text.data());
    if (!reader->parse(begin, begin + text.size(), &value, &errors)) {
        throw std::runtime_error("Could not parse json: " + errors);
    }
    return value;
}

AbstractVariableResource::AbstractVariableResource(std::shared_ptr<IOnChangeNotifier> notifier,
                                                   ObjectFactory root, std::vector<std::string> segments,
                                                   std::shared_ptr<const AbstractType> rootType)
    : m_notifier(std::move(notifier)),
      m_root(std::move(root)),
      m_segments(std::move(segments)),
      m_rootType(std::move(rootType)) {}

std::shared_ptr<const AbstractType> AbstractVariableResource::variableType() {
    if (m_segments.empty() && m_rootType) {
        return m_rootType;
    }
    return std::make_shared<const AbstractType>(getObjectType(variable()));
}

IAbstractObject& AbstractVariableResource::variable() {
    if (!m_variable) {
        m_variable = FindObjectAtPath(m_root, m_segments)();
    }
    return *m_variable;
}

void AbstractVariableResource::changed() {
    if (m_notifier) {
        m_notifier->OnChange();
    }
}

void AbstractVariableResource::OnDesc(Bytes& result) {
    const std::shared_ptr<const AbstractType> rootType =
        m_rootType ? m_rootType : std::make_shared<const AbstractType>(getObjectType(*m_root()));
    const AbstractType type =
        FindTypeAtPath(*rootType, std::deque<std::string>(m_segments.begin(), m_segments.end()), true);
    result = bytesOf(styledJson(config::abstract_variable::abstract_type::v1::SerializeTypeToJson(type)));
}

void AbstractVariableResource::OnSize(Bytes& result) {
    result = bytesOf(styledJson(SerializeSizeToJson(&variable())));
}

void AbstractVariableResource::OnElements(Bytes& result) {
    result = bytesOf(styledJson(SerializeElementIdsToJson(&variable())));
}

std::string AbstractVariableResource::doCommand(QueryCommand command, DataFormat parameterFormat,
                                                DataFormat returnFormat,
                                                const std::vector<std::string>& filters,
                                                IStreamReceiver& source, const HeapStore& heap) {
    const Parameters parameters = readParameters(command, parameterFormat, source);
    CommandResult result;
    if (command == QueryCommand::get) {
        result.object = &variable();
        result.type = variableType();
    } else if (command == QueryCommand::set || command == QueryCommand::load) {
        write(parameters);
    } else if (command == QueryCommand::call) {
        result = call(parameters, returnFormat, heap);
    } else {
        throw std::runtime_error("not implemented");
    }
    return writeResult(result, returnFormat, filters);
}

void AbstractVariableResource::write(const Parameters& parameters) {
    IAbstractObject& target = variable();
    if (parameters.format == DataFormat::json) {
        UnserializeValueFromJson(parameters.json, &target, *variableType(), false, true);
    } else if (parameters.format == DataFormat::raw) {
        writeRaw(target, parameters.raw);
    } else {
        std::unique_ptr<IStreamSender> extractor =
            newMultiPartFormDataParser(std::make_unique<RawSetter>(target));
        sendAll(*extractor, parameters.raw);
        extractor->close();
    }
    changed();
}

CommandResult AbstractVariableResource::call(const Parameters& parameters, DataFormat returnFormat,
                                             const HeapStore& heap) {
    IAbstractObject& target = variable();
    const FunctionType function = getObjectType(target).get<FunctionType>();
    auto callable = convertTo<IFunction>(target);
    std::unique_ptr<IAbstractObject> parameter = callable->newParameter()();
    if (parameters.format == DataFormat::raw) {
        writeRaw(*parameter, parameters.raw);
    } else {
        UnserializeValueFromJson(parameters.json, parameter.get(), *function.parameter, false, false);
    }
    CommandResult result;
    result.owned = callable->call(*parameter)();
    result.object = result.owned.get();
    result.type = std::make_shared<const AbstractType>(*function.returnType);
    changed();
    if (heap && returnFormat == DataFormat::heap) {
        result.json = heap(*result.type, *result.object);
        result.object = nullptr;
    }
    return result;
}

void AbstractVariableResource::OnProcess(QueryCommand command, DataFormat parameterFormat,
                                         DataFormat returnFormat, const std::vector<std::string>& filters,
                                         PostProcessing postProcessing, IStreamReceiver& parameters,
                                         IStreamSender& result, const HeapStore& heap) {
    std::string text = doCommand(command, parameterFormat, returnFormat, filters, parameters, heap);
    switch (postProcessing) {
        case PostProcessing::none:
            break;
        case PostProcessing::md5:
            text = md5Text(text);
            break;
        default:
            throw std::runtime_error("Unknown post processing format");
    }
    sendAll(result, text);
}

void AbstractVariableResource::OnDelete(std::int32_t index) {
    Delete command(index);
    variable().accept(command);
    changed();
}

void AbstractVariableResource::OnSetRawElement(std::int32_t index) {
    AddElement command(index);
    variable().accept(command);
    changed();
}

void AbstractVariableResource::OnInsert(const Bytes& body, Bytes& result) {
    const Json::Value value = parseJsonText(body);
    Insert command(value);
    variable().accept(command);
    changed();
    result = command.result().isNull() ? bytesOf(kEmptyJsonText) : bytesOf(styledJson(command.result()));
}

void AbstractVariableResource::OnResize(const Bytes& body) {
    const Json::Value size = parseJsonText(body);
    if (!size.isInt()) {
        throw std::runtime_error("Cannot unserialize json: incorrect type");
    }
    convertTo<IVector>(variable())->resize(size.asInt());
    changed();
}

std::unique_ptr<IStreamSender> AbstractVariableResource::OnSetValueRaw() {
    return std::make_unique<RawSetter>(variable());
}

std::vector<std::string> treeSegments(const std::string& treePath, const std::string& wholePath) {
    std::vector<std::string> segments;
    if (treePath.empty()) {
        return segments;
    }
    if (treePath.front() != '/') {
        throw std::runtime_error("Invalid resource: " + wholePath);
    }
    std::size_t start = 1;
    while (true) {
        const std::size_t end = treePath.find('/', start);
        segments.push_back(treePath.substr(start, end - start));
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return segments;
}

AbstractVariableResourceFinder::AbstractVariableResourceFinder(ObjectFactory root, std::string servicePath,
                                                               std::shared_ptr<IOnChangeNotifier> notifier)
    : m_root(std::move(root)), m_servicePath(std::move(servicePath)), m_notifier(std::move(notifier)) {
    while (m_servicePath.ends_with('/')) {
        m_servicePath.pop_back();
    }
}

std::unique_ptr<IResource> AbstractVariableResourceFinder::find(const std::string& path) {
    if (!path.starts_with(m_servicePath)) {
        throw std::runtime_error("Invalid resource: " + path);
    }
    std::call_once(m_rootTypeMade,
                   [this] { m_rootType = std::make_shared<const AbstractType>(getObjectType(*m_root())); });
    return std::make_unique<AbstractVariableResource>(
        m_notifier, m_root, treeSegments(path.substr(m_servicePath.size()), path), m_rootType);
}

}  // namespace ovtx::network::restful_web_service_request_handler::v0
