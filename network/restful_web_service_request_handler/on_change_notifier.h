// What the REST service tells when a request has changed the tree.
//
// `DataExchanger` calls `OnChange` after every request that wrote to the tree (set, load, call,
// insert, resize, element add and delete). A service with a state file passes a notifier that
// saves the tree in the background; a service without one passes `newNoSaver()`:
//
//   std::shared_ptr<IOnChangeNotifier> notifier = newNoSaver();
//   notifier->OnChange();   // does nothing
//
// `OnChange` runs on the request's worker thread and must never block.
#pragma once

#include <memory>

namespace ovtx::network::restful_web_service_request_handler::v0 {

struct IOnChangeNotifier {
    virtual void OnChange() = 0;
    virtual ~IOnChangeNotifier() = default;
};

// A notifier that does nothing, for a service that keeps no state file.
std::unique_ptr<IOnChangeNotifier> newNoSaver();

}  // namespace ovtx::network::restful_web_service_request_handler::v0
