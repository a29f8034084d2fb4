// The resources of the REST service: what a request path names, and what can be done with it.
//
// An `IResourceFinder` turns the path of a request into an `IResource`; the resource does the
// work of one request and is dropped after it. `AbstractVariableResourceFinder` finds variables of
// a tree of abstract variables below the service path:
//
//   AbstractVariableResourceFinder finder(rootFactory, "/sdi_tap/0", notifier);
//   std::unique_ptr<IResource> resource = finder.find("/sdi_tap/0/BoardInfo/ApiVersion");
//   Bytes body;
//   DataSender result(body);
//   resource->OnProcess(QueryCommand::get, DataFormat::json, DataFormat::json, {},
//                       PostProcessing::none, emptyBody, result, {});   // body: the JSON text
//
// JSON answers are styled JSON text (jsoncpp's StyledWriter). Every failure is an exception whose
// text reaches the client; an element index outside a vector is a std::out_of_range.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "config/abstract_variable/abstract_object.h"
#include "cpp_utils/stream_io/stream_io.h"
#include "network/restful_web_service_request_handler/on_change_notifier.h"
#include "network/restful_web_service_request_handler/query.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {

namespace av = config::abstract_variable::lib_abstract_variable::v2;

using Bytes = std::vector<std::uint8_t>;
using cpp_utils::stream_io::v1::IStreamReceiver;
using cpp_utils::stream_io::v1::IStreamSender;

// A sink that appends to a byte vector.
class DataSender : public IStreamSender {
  public:
    explicit DataSender(Bytes& bytes) : m_bytes(&bytes) {}
    std::size_t send(const std::uint8_t* bytes, std::size_t size) override;

  private:
    Bytes* m_bytes;
};

// A source that delivers a byte vector.
class DataReceiver : public IStreamReceiver {
  public:
    explicit DataReceiver(const Bytes& bytes) : m_bytes(&bytes) {}
    std::size_t receive(std::uint8_t* buffer, std::size_t size) override;

  private:
    const Bytes* m_bytes;
    std::size_t m_position = 0;
};

// Everything a source delivers, read through a buffer of 1000 bytes.
Bytes readAll(IStreamReceiver& source);

// Styled JSON text of a value, as the answers carry it.
std::string styledJson(const Json::Value& value);
// The JSON value of a text; "Could not parse json: <errors>" when it is none. An empty text is null.
Json::Value parseJsonText(const Bytes& text);

// Keeps a copy of `value` (of `type`) in the heap and returns its id; empty when the request has
// no access to the heap.
using HeapStore = std::function<std::int32_t(const av::AbstractType& type, av::IAbstractObject& value)>;

struct IResource {
    // The type description of the variable.
    virtual void OnDesc(Bytes& result) = 0;
    // The number of elements of a vector.
    virtual void OnSize(Bytes& result) = 0;
    // The ids of a map.
    virtual void OnElements(Bytes& result) = 0;
    // Reads, writes or calls the variable. The answer's body goes to `result` in one piece, once the
    // command has succeeded, so that a failure leaves `result` untouched.
    virtual void OnProcess(QueryCommand command, DataFormat parameterFormat, DataFormat returnFormat,
                           const std::vector<std::string>& filters, PostProcessing postProcessing,
                           IStreamReceiver& parameters, IStreamSender& result, const HeapStore& heap) = 0;
    // Removes element `index` of a map.
    virtual void OnDelete(std::int32_t index) = 0;
    // Adds an element built from the JSON `body` to a container; `result` gets its id or index.
    virtual void OnInsert(const Bytes& body, Bytes& result) = 0;
    // Adds element `index` to a map, with its default value.
    virtual void OnSetRawElement(std::int32_t index) = 0;
    // Sets the number of elements of a vector to the JSON integer `body`.
    virtual void OnResize(const Bytes& body) = 0;
    virtual ~IResource() = default;
    // A sink into which the variable's raw value is written; it is stored when the sink closes.
    virtual std::unique_ptr<IStreamSender> OnSetValueRaw() = 0;
};

struct IResourceFinder {
    virtual std::unique_ptr<IResource> find(const std::string& path) = 0;
    virtual ~IResourceFinder() = default;
};

// The body of a request, read as its format says.
struct Parameters {
    DataFormat format = DataFormat::json;
    Json::Value json;
    Bytes raw;
};

// What a command yields: an object with its type, or a JSON value of its own (a heap id).
struct CommandResult {
    std::unique_ptr<av::IAbstractObject> owned;
    av::IAbstractObject* object = nullptr;
    std::shared_ptr<const av::AbstractType> type;
    Json::Value json;
};

// A variable below `root` at the end of `segments` (a URL child path: vector indices from 1).
// `rootType`, when given, is the root's type record, which spares a copy of it per request.
class AbstractVariableResource : public IResource {
  public:
    AbstractVariableResource(std::shared_ptr<IOnChangeNotifier> notifier, av::ObjectFactory root,
                             std::vector<std::string> segments,
                             std::shared_ptr<const av::AbstractType> rootType = nullptr);

    void OnDesc(Bytes& result) override;
    void OnSize(Bytes& result) override;
    void OnElements(Bytes& result) override;
    void OnProcess(QueryCommand command, DataFormat parameterFormat, DataFormat returnFormat,
                   const std::vector<std::string>& filters, PostProcessing postProcessing,
                   IStreamReceiver& parameters, IStreamSender& result, const HeapStore& heap) override;
    void OnDelete(std::int32_t index) override;
    void OnInsert(const Bytes& body, Bytes& result) override;
    void OnSetRawElement(std::int32_t index) override;
    void OnResize(const Bytes& body) override;
    std::unique_ptr<IStreamSender> OnSetValueRaw() override;

  private:
    // The variable, walked to on first use.
    av::IAbstractObject& variable();
    std::shared_ptr<const av::AbstractType> variableType();
    std::string doCommand(QueryCommand command, DataFormat parameterFormat, DataFormat returnFormat,
                          const std::vector<std::string>& filters, IStreamReceiver& source,
                          const HeapStore& heap);
    void write(const Parameters& parameters);
    CommandResult call(const Parameters& parameters, DataFormat returnFormat, const HeapStore& heap);
    void changed();

    std::shared_ptr<IOnChangeNotifier> m_notifier;
    av::ObjectFactory m_root;
    std::vector<std::string> m_segments;
    std::shared_ptr<const av::AbstractType> m_rootType;
    std::unique_ptr<av::IAbstractObject> m_variable;
};

// Finds variables of the tree that `root` builds, for request paths below `servicePath`. The
// root's type record is made once, on the first request, and shared by all that follow: the tree
// keeps its shape for the life of the service.
class AbstractVariableResourceFinder : public IResourceFinder {
  public:
    AbstractVariableResourceFinder(av::ObjectFactory root, std::string servicePath,
                                   std::shared_ptr<IOnChangeNotifier> notifier);
    // Fails with "Invalid resource: <path>" for a path outside the service path.
    std::unique_ptr<IResource> find(const std::string& path) override;

  private:
    av::ObjectFactory m_root;
    std::string m_servicePath;
    std::shared_ptr<IOnChangeNotifier> m_notifier;
    std::once_flag m_rootTypeMade;
    std::shared_ptr<const av::AbstractType> m_rootType;
};

// The segments of a path inside a tree: "" is the root, otherwise "/a/b" gives {"a", "b"}.
// `wholePath` names the request in the "Invalid resource: " failure of a path without its "/".
std::vector<std::string> treeSegments(const std::string& treePath, const std::string& wholePath);

}  // namespace ovtx::network::restful_web_service_request_handler::v0
