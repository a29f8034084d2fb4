// A REST service in front of a tree of abstract variables, for the whole life of a run.
//
// Constructing it binds the URL and starts the listener and the workers, so requests are served
// from then on; destroying it stops the listener first, so that no request runs while the rest
// goes away. With a state file name the tree is loaded from "<name>.state" when the service
// starts and saved there in the background after each change; with an empty name nothing is read
// or written and no saving thread runs.
//
//   AbstractObjectWebService service(&logger, buildServiceTree(engine, false, boardInfo),
//                                    httpBaseUrl(), "/sdi_tap/0", "", false,
//                                    alwaysSuccessfulAuthMgr(), 15, 32, false);
//   ...   // GET http://127.0.0.1:8080/sdi_tap/0 answers the whole tree
//
// Its log lines carry the prefix "Web service <path>: ". Start failures of the HTTP server
// ("Could not bind Http url to Http server", ...) leave the constructor as exceptions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "config/abstract_variable/abstract_object.h"
#include "log/i_logger.h"
#include "log/prefixed_logger.h"
#include "network/http_server/requests_source.h"
#include "network/http_server_auth/i_auth_mgr_client.h"
#include "network/restful_web_service/state_file.h"
#include "network/restful_web_service_request_handler/on_change_notifier.h"

namespace ovtx::network::restful_web_service::v3 {

struct IAbstractObjectWebService {
    virtual ~IAbstractObjectWebService() = default;
};

class AbstractObjectWebService : public IAbstractObjectWebService {
  public:
    // `logger` must outlive the service. `baseUrl` and `servicePath` are joined with nothing
    // between them ("http://*:80" and "/sdi_tap/0"). `checkPeriodically` has the saver compare the
    // tree with the file every 15 s; `allowPartialLoad` lets a state file of an older tree load
    // what still fits. The heap keeps at most `heapCapacity` + 1 instances; `workers` answer
    // requests.
    AbstractObjectWebService(
        log::i_logger::v0::ILogger* logger,
        config::abstract_variable::lib_abstract_variable::v2::ObjectFactory factory,
        const std::string& baseUrl, const std::string& servicePath, const std::string& stateFileName,
        bool checkPeriodically,
        std::unique_ptr<http_server_auth::i_auth_mgr_client::v0::IAuthMgrClient> authorisation,
        std::int32_t heapCapacity, std::size_t workers, bool allowPartialLoad);
    ~AbstractObjectWebService() override;

    AbstractObjectWebService(const AbstractObjectWebService&) = delete;
    AbstractObjectWebService& operator=(const AbstractObjectWebService&) = delete;

    // The port the service listens on (the one taken when the base URL asks for port 0).
    std::uint16_t port() const { return m_requests->port(); }

  private:
    log::prefixed_logger::v0::PrefixedLogger m_logger;
    config::abstract_variable::lib_abstract_variable::v2::ObjectFactory m_factory;
    std::shared_ptr<config::abstract_variable::lib_abstract_variable::v2::IAbstractObject> m_object;
    std::string m_stateFileName;
    std::unique_ptr<StateFile> m_stateFile;  // none without a state file name
    std::shared_ptr<restful_web_service_request_handler::v0::IOnChangeNotifier> m_notifier;
    std::unique_ptr<http_server::v3::RequestsSource> m_requests;  // owns the request handler
};

}  // namespace ovtx::network::restful_web_service::v3
