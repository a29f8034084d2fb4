#include "network/restful_web_service_request_handler/data_exchanger.h"

#include <charconv>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <variant>

namespace ovtx::network::restful_web_service_request_handler::v0 {

using http_server::v3::HttpVerb;
using http_server_request_handler::v0::HttpHeader;
using http_server_request_handler::v0::IAnswerSender;
namespace ids = http_server_request_handler::v0;

namespace {

const std::string kEmptyJsonText = "\"\"";

std::string stripTrailingSlashes(std::string path) {
    while (path.ends_with('/')) {
        path.pop_back();
    }
    return path;
}

class EmptyBody : public IStreamReceiver {
  public:
    std::size_t receive(std::uint8_t*, std::size_t) override { return 0; }
};

}  // namespace

class DataExchanger::Answer : public IStreamSender {
  public:
    explicit Answer(IAnswerSender& sender) : m_sender(sender), m_header(200, "OK") {
        m_header.otherHeaders["Access-Control-Allow-Origin"] = "*";
        m_header.knownHeaders[ids::HttpHeaderContentType] = "application/json";
        m_header.knownHeaders[ids::HttpHeaderCacheControl] = "no-cache";
    }

    http_server::v3::Request& request() { return m_sender.GetRequest(); }
    IStreamReceiver& requestBody() {
        static EmptyBody none;
        return request().body ? *request().body : none;
    }
    HttpHeader& header() { return m_header; }
    bool headerSent() const { return m_headerSent; }

    // The body goes straight to the client, behind the header that the first byte sends.
    std::size_t send(const std::uint8_t* bytes, std::size_t size) override {
        sendHeader();
        IStreamSender& body = m_sender.GetBodySender();
        for (std::size_t done = 0; done < size;) {
            done += body.send(bytes + done, size - done);
        }
        return size;
    }
    void send(const std::string& body) {
        sendHeader();
        send(reinterpret_cast<const std::uint8_t*>(body.data()), body.size());
    }
    void sendHeader() {
        if (!m_headerSent) {
            m_headerSent = true;
            m_sender.SendHeader(m_header);
        }
    }

  private:
    IAnswerSender& m_sender;
    HttpHeader m_header;
    bool m_headerSent = false;
};

DataExchanger::DataExchanger(av::ObjectFactory factory, std::shared_ptr<av::IAbstractObject> sharedObject,
                             std::string servicePath, std::shared_ptr<IOnChangeNotifier> notifier,
                             std::int32_t heapCapacity)
    : m_sharedObject(std::move(sharedObject)),
      m_notifier(std::move(notifier)),
      m_finder(std::make_unique<AbstractVariableResourceFinder>(factory, std::move(servicePath), m_notifier)),
      m_heap(std::make_unique<Heap>(heapCapacity)),
      m_sessions(std::make_shared<AbstractVariableResourceFinder>(factory, "", m_notifier)),
      m_heapCapacity(heapCapacity) {}

void DataExchanger::Handle(IAnswerSender* sender) {
    Answer answer(*sender);
    const auto fail = [&](std::uint16_t status, const std::string& reason, const char* text) {
        if (!answer.headerSent()) {
            answer.header().status = status;
            answer.header().reason = reason;
            answer.send(reason);
        }
        throw std::runtime_error(std::string("Could not process request: ") + text);
    };
    try {
        Query query = parseQuery(answer.request().query);
        handleRoads(answer, stripTrailingSlashes(answer.request().path), query);
    } catch (const std::out_of_range& error) {
        fail(404, "Invalid element index", error.what());
    } catch (const std::exception& error) {
        fail(400, error.what(), error.what());
    }
}

void DataExchanger::handleRoads(Answer& answer, const std::string& path, Query& query) {
    const HttpVerb verb = answer.request().verb;
    if (verb == HttpVerb::Delete || verb == HttpVerb::Put) {
        elementRoad(answer, path);
    } else if (query.heapGiven) {
        heapRoad(answer, query);
    } else if (sessionCommandCount(query) > 0) {
        answer.send(m_sessions.handle(query));
    } else {
        const std::unique_ptr<IResource> resource = m_finder->find(path);
        resourceRoad(answer, *resource, query,
                     [this](const av::AbstractType& type, av::IAbstractObject& value) {
                         return m_heap.exclusive()->add(type, value);
                     });
    }
}

void DataExchanger::elementRoad(Answer& answer, const std::string& path) {
    answer.header().knownHeaders[ids::HttpHeaderContentType] = "text/plain";
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash + 1 == path.size()) {
        throw std::runtime_error("Invalid map path");
    }
    const std::unique_ptr<IResource> resource = m_finder->find(path.substr(0, slash));
    const std::string indexText = path.substr(slash + 1);
    std::int32_t index = 0;
    const auto [end, error] = std::from_chars(indexText.data(), indexText.data() + indexText.size(), index);
    if (error != std::errc() || end != indexText.data() + indexText.size()) {
        throw std::runtime_error("Invalid map path");
    }
    if (answer.request().verb == HttpVerb::Delete) {
        resource->OnDelete(index);
    } else {
        resource->OnSetRawElement(index);
    }
    answer.sendHeader();
}

void DataExchanger::heapRoad(Answer& answer, Query& query) {
    const bool post = answer.request().verb == HttpVerb::Post;
    const auto heap = m_heap.exclusive();
    std::visit(
        [&](const auto& alternative) {
            using Alternative = std::decay_t<decltype(alternative)>;
            if constexpr (std::is_same_v<Alternative, HeapNew>) {
                if (post) {
                    const std::int32_t id = heap->addFromJson(parseJsonText(readAll(answer.requestBody())));
                    answer.send(std::to_string(id));
                }
            } else if constexpr (std::is_same_v<Alternative, HeapDelete>) {
                if (post) {
                    const Json::Value id = parseJsonText(readAll(answer.requestBody()));
                    if (!id.isInt()) {
                        throw std::runtime_error("Cannot unserialize json: incorrect type");
                    }
                    heap->remove(id.asInt());
                    answer.send(kEmptyJsonText);
                }
            } else {
                AbstractVariableResource resource(m_notifier, heap->instance(alternative.id),
                                                  treeSegments(alternative.path, alternative.path));
                query.command = alternative.command;
                query.commandGiven = alternative.commandGiven;
                resourceRoad(answer, resource, query, {});
            }
        },
        query.heap);
}

void DataExchanger::resourceRoad(Answer& answer, IResource& resource, Query& query, const HeapStore& heap) {
    const HttpVerb verb = answer.request().verb;
    Bytes result;
    if (verb == HttpVerb::Get && query.commandGiven &&
        (query.command == QueryCommand::desc || query.command == QueryCommand::size ||
         query.command == QueryCommand::elements)) {
        if (query.command == QueryCommand::desc) {
            resource.OnDesc(result);
        } else if (query.command == QueryCommand::size) {
            resource.OnSize(result);
        } else {
            resource.OnElements(result);
        }
    } else if (verb == HttpVerb::Post && query.commandGiven && query.command == QueryCommand::resize) {
        resource.OnResize(readAll(answer.requestBody()));
        result.assign(kEmptyJsonText.begin(), kEmptyJsonText.end());
    } else if (verb == HttpVerb::Post && query.commandGiven && query.command == QueryCommand::insert) {
        resource.OnInsert(readAll(answer.requestBody()), result);
    } else {
        // The resource sends its whole result at once, when nothing can fail any more.
        applyVerbDefaults(query, verb);
        resource.OnProcess(query.command, query.parameterFormat, query.returnFormat, query.filters,
                           query.postProcessing, answer.requestBody(), answer, heap);
    }
    answer.send(result.data(), result.size());
}

}  // namespace ovtx::network::restful_web_service_request_handler::v0
