// The request handler of the REST service: a tree of abstract variables over HTTP.
//
// For each request `DataExchanger` parses the query, finds the variable that the path names below
// the service path, does what the query asks and answers 200 "OK" with `Content-Type:
// application/json`, `Cache-Control: no-cache` and `Access-Control-Allow-Origin: *`, the body in
// chunks. It is built once for the service and shared by the server's workers:
//
//   auto notifier = std::shared_ptr<IOnChangeNotifier>(newNoSaver());
//   ObjectFactory factory = buildTree();
//   auto handler = std::make_unique<DataExchanger>(factory, std::shared_ptr<IAbstractObject>(factory()),
//                                                  "/sdi_tap/0", notifier, 15);
//   RequestsSource server(&logger, "http://*:80/sdi_tap/0", std::move(handler), 32,
//                         alwaysSuccessfulAuthMgr());
//
//   GET  /sdi_tap/0/BoardInfo/ApiVersion           the value as JSON
//   GET  /sdi_tap/0/AudioSampling?size             the number of elements
//   POST /sdi_tap/0/Name  "\"studio 4\""           writes the value
//   DELETE /sdi_tap/0/Channels/3                   removes element 3 of a map
//
// The roads, in this order: PUT and DELETE add and remove elements of a map; `?heap...` reaches the
// heap; a session command (`new_session`, ...) the sessions; everything else the variable. A
// failure answers 400 with its text as the reason and the body ("Invalid element index" for an
// element outside a vector answers 404), and is then raised again as "Could not process request:
// <text>" for the server to report.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "config/abstract_variable/abstract_object.h"
#include "network/http_server_request_handler/i_request_handler.h"
#include "network/restful_web_service_request_handler/heap.h"
#include "network/restful_web_service_request_handler/on_change_notifier.h"
#include "network/restful_web_service_request_handler/query.h"
#include "network/restful_web_service_request_handler/resource.h"
#include "network/restful_web_service_request_handler/session.h"
#include "system/sync_ptr/shared_sync_ptr.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {

class DataExchanger : public http_server_request_handler::v0::IRequestHandler {
  public:
    // `factory` builds a fresh view of the tree's root for each request; `sharedObject` is the
    // service's state object, kept alive as long as the handler; `servicePath` ("/sdi_tap/0") is
    // the path of the tree's root; `notifier` hears of every change; the heap keeps at most
    // `heapCapacity` + 1 instances.
    DataExchanger(av::ObjectFactory factory, std::shared_ptr<av::IAbstractObject> sharedObject,
                  std::string servicePath, std::shared_ptr<IOnChangeNotifier> notifier,
                  std::int32_t heapCapacity);

    void Handle(http_server_request_handler::v0::IAnswerSender* answer) override;

  private:
    // The answer of one request: its header, and whether the header went out.
    class Answer;

    void handleRoads(Answer& answer, const std::string& path, Query& query);
    void elementRoad(Answer& answer, const std::string& path);
    void heapRoad(Answer& answer, Query& query);
    // Does what the query asks of `resource`; `heap` is empty when the request may not store.
    void resourceRoad(Answer& answer, IResource& resource, Query& query, const HeapStore& heap);

    std::shared_ptr<av::IAbstractObject> m_sharedObject;
    std::shared_ptr<IOnChangeNotifier> m_notifier;
    std::unique_ptr<IResourceFinder> m_finder;
    system::shared_sync_ptr::v0::SharedSyncAccessor<Heap> m_heap;
    Sessions m_sessions;
    std::int32_t m_heapCapacity;
};

}  // namespace ovtx::network::restful_web_service_request_handler::v0
