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

// Sends the header and the whole body, and remembers that it did.
class Answer {
  public:
    explicit Answer(IAnswerSender& sender) : m_sender(sender) {}

    void send(const HttpHeader& header, const std::string& body) {
        send(header, reinterpret_cast<const std::uint8_t*>(body.data()), body.size());
    }
    void send(const HttpHeader& header, const std::uint8_t* body, std::size_t size) {
        m_sent = true;
        m_sender.SendHeader(header);
        auto& sink = m_sender.GetBodySender();
        for (std::size_t done = 0; done < size;) {
            done += sink.send(body + done, size - done);
        }
    }
    bool sent() const { return m_sent; }

  private:
    IAnswerSender& m_sender;
    bool m_sent = false;
};

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

IStreamReceiver& bodyOf(http_server::v3::Request& request) {
    static EmptyBody none;
    return request.body ? *request.body : none;
}

void sendBytes(IAnswerSender& answer, const HttpHeader& header, const Bytes& body) {
    Answer(answer).send(header, body.data(), body.size());
}

}  // namespace

DataExchanger::DataExchanger(av::ObjectFactory factory, std::shared_ptr<av::IAbstractObject> sharedObject,
                             std::string servicePath, std::shared_ptr<IOnChangeNotifier> notifier,
                             std::int32_t heapCapacity)
    : m_sharedObject(std::move(sharedObject)),
      m_notifier(std::move(notifier)),
      m_finder(std::make_unique<AbstractVariableResourceFinder>(factory, std::move(servicePath), m_notifier)),
      m_heap(std::make_unique<Heap>(heapCapacity)),
      m_sessions(std::make_shared<AbstractVariableResourceFinder>(factory, "", m_notifier)),
      m_heapCapacity(heapCapacity) {}

void DataExchanger::Handle(IAnswerSender* answer) {
    http_server::v3::Request& request = answer->GetRequest();
    const std::string path = stripTrailingSlashes(request.path);
    HttpHeader header(200, "OK");
    header.otherHeaders["Access-Control-Allow-Origin"] = "*";
    header.knownHeaders[ids::HttpHeaderContentType] = "application/json";
    header.knownHeaders[ids::HttpHeaderCacheControl] = "no-cache";
    Answer failure(*answer);
    try {
        Query query = parseQuery(request.query);
        handleRoads(*answer, path, query, header);
    } catch (const std::out_of_range& error) {
        header.status = 404;
        header.reason = "Invalid element index";
        failure.send(header, header.reason);
        throw std::runtime_error(std::string("Could not process request: ") + error.what());
    } catch (const std::exception& error) {
        header.status = 400;
        header.reason = error.what();
        failure.send(header, header.reason);
        throw std::runtime_error(std::string("Could not process request: ") + error.what());
    }
}

void DataExchanger::handleRoads(IAnswerSender& answer, const std::string& path, Query& query,
                                HttpHeader& header) {
    const HttpVerb verb = answer.GetRequest().verb;
    if (verb == HttpVerb::Delete || verb == HttpVerb::Put) {
        elementRoad(answer, path, header);
    } else if (query.heapGiven) {
        heapRoad(answer, query, header);
    } else if (sessionCommandCount(query) > 0) {
        const std::string body = m_sessions.handle(query);
        Answer(answer).send(header, body);
    } else {
        const std::unique_ptr<IResource> resource = m_finder->find(path);
        resourceRoad(answer, *resource, query, header,
                     [this](const av::AbstractType& type, av::IAbstractObject& value) {
                         return m_heap.exclusive()->add(type, value);
                     });
    }
}

void DataExchanger::elementRoad(IAnswerSender& answer, const std::string& path, HttpHeader& header) {
    header.knownHeaders[ids::HttpHeaderContentType] = "text/plain";
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
    if (answer.GetRequest().verb == HttpVerb::Delete) {
        resource->OnDelete(index);
    } else {
        resource->OnSetRawElement(index);
    }
    Answer(answer).send(header, "");
}

void DataExchanger::heapRoad(IAnswerSender& answer, Query& query, const HttpHeader& header) {
    http_server::v3::Request& request = answer.GetRequest();
    const bool post = request.verb == HttpVerb::Post;
    const auto heap = m_heap.exclusive();
    std::visit(
        [&](const auto& alternative) {
            using Alternative = std::decay_t<decltype(alternative)>;
            if constexpr (std::is_same_v<Alternative, HeapNew>) {
                if (post) {
                    const std::int32_t id = heap->addFromJson(parseJsonText(readAll(bodyOf(request))));
                    Answer(answer).send(header, std::to_string(id));
                }
            } else if constexpr (std::is_same_v<Alternative, HeapDelete>) {
                if (post) {
                    const Json::Value id = parseJsonText(readAll(bodyOf(request)));
                    if (!id.isInt()) {
                        throw std::runtime_error("Cannot unserialize json: incorrect type");
                    }
                    heap->remove(id.asInt());
                    Answer(answer).send(header, kEmptyJsonText);
                }
            } else {
                AbstractVariableResource resource(m_notifier, heap->instance(alternative.id),
                                                  treeSegments(alternative.path, alternative.path));
                query.command = alternative.command;
                query.commandGiven = alternative.commandGiven;
                resourceRoad(answer, resource, query, header, {});
            }
        },
        query.heap);
}

void DataExchanger::resourceRoad(IAnswerSender& answer, IResource& resource, Query& query,
                                 const HttpHeader& header, const HeapStore& heap) {
    http_server::v3::Request& request = answer.GetRequest();
    Bytes result;
    if (request.verb == HttpVerb::Get && query.commandGiven &&
        (query.command == QueryCommand::desc || query.command == QueryCommand::size ||
         query.command == QueryCommand::elements)) {
        if (query.command == QueryCommand::desc) {
            resource.OnDesc(result);
        } else if (query.command == QueryCommand::size) {
            resource.OnSize(result);
        } else {
            resource.OnElements(result);
        }
    } else if (request.verb == HttpVerb::Post && query.commandGiven &&
               query.command == QueryCommand::resize) {
        resource.OnResize(readAll(bodyOf(request)));
        result.assign(kEmptyJsonText.begin(), kEmptyJsonText.end());
    } else if (request.verb == HttpVerb::Post && query.commandGiven &&
               query.command == QueryCommand::insert) {
        resource.OnInsert(readAll(bodyOf(request)), result);
    } else {
        applyVerbDefaults(query, request.verb);
        DataSender sink(result);
        resource.OnProcess(query.command, query.parameterFormat, query.returnFormat, query.filters,
                           query.postProcessing, bodyOf(request), sink, heap);
    }
    sendBytes(answer, header, result);
}

}  // namespace ovtx::network::restful_web_service_request_handler::v0
