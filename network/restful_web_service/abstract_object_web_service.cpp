#include "network/restful_web_service/abstract_object_web_service.h"

#include <utility>

#include "network/http_server/http_url.h"
#include "network/restful_web_service/auto_saver.h"
#include "network/restful_web_service_request_handler/data_exchanger.h"

namespace ovtx::network::restful_web_service::v3 {

namespace {
using restful_web_service_request_handler::v0::DataExchanger;
}  // namespace

AbstractObjectWebService::AbstractObjectWebService(
    log::i_logger::v0::ILogger* logger,
    config::abstract_variable::lib_abstract_variable::v2::ObjectFactory factory, const std::string& baseUrl,
    const std::string& servicePath, const std::string& stateFileName, bool checkPeriodically,
    std::unique_ptr<http_server_auth::i_auth_mgr_client::v0::IAuthMgrClient> authorisation,
    std::int32_t heapCapacity, std::size_t workers, bool allowPartialLoad)
    : m_logger(logger, "Web service " + servicePath + ": "),
      m_factory(std::move(factory)),
      m_object(m_factory()),
      m_stateFileName(stateFileName + ".state") {
    if (stateFileName.empty()) {
        m_notifier = restful_web_service_request_handler::v0::newNoSaver();
    } else {
        m_stateFile = std::make_unique<StateFile>(m_stateFileName, m_object);
        StateFile* state = m_stateFile.get();
        m_notifier = std::make_shared<AutoSaver>(
            &m_logger, [state] { state->save(); }, [state] { state->saveIfChanged(); }, checkPeriodically);
        state->load(m_logger, allowPartialLoad);
    }
    m_requests = std::make_unique<http_server::v3::RequestsSource>(
        &m_logger, http_server::v3::serviceUrl(baseUrl, servicePath),
        std::make_unique<DataExchanger>(m_factory, m_object, servicePath, m_notifier, heapCapacity), workers,
        std::move(authorisation));
}

AbstractObjectWebService::~AbstractObjectWebService() {
    // No request may run while the saver, the state file and the tree go.
    m_requests.reset();
}

}  // namespace ovtx::network::restful_web_service::v3
