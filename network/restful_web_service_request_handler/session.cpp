#include "network/restful_web_service_request_handler/session.h"

#include <charconv>
#include <stdexcept>

#include "config/abstract_variable/object_construction.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {

namespace {

constexpr std::size_t kSessionLimit = 10;
const std::string kNoAnswer = "\"\"";

std::int32_t integerOf(const std::string& text, const std::string& what) {
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) {
        throw std::runtime_error("'" + text + "' is not a valid " + what);
    }
    return value;
}

}  // namespace

std::string Session::digestOf(const std::string& path) const {
    std::unique_ptr<IResource> resource = m_finder->find(path);
    Bytes empty;
    DataReceiver noParameters(empty);
    Bytes digest;
    DataSender result(digest);
    resource->OnProcess(QueryCommand::get, DataFormat::json, DataFormat::json, {}, PostProcessing::md5,
                        noParameters, result, {});
    return std::string(digest.begin(), digest.end());
}

std::int32_t Session::AddMonitoredVariable(const std::string& path) {
    std::string digest = digestOf(path);
    const std::int32_t id = m_nextMonitorId++;
    m_monitored.emplace(id, MonitoredVariable{std::move(digest), path});
    return id;
}

void Session::RemoveMonitoredVariable(std::int32_t id) {
    if (m_monitored.erase(id) == 0) {
        throw std::runtime_error("'" + std::to_string(id) + "' is not a monitored variable of this session");
    }
}

void Session::UpdateChangeLog() {
    for (auto& [id, monitored] : m_monitored) {
        // A variable that can no longer be read (a map element removed) counts as changed once,
        // and again when it comes back.
        std::string digest;
        try {
            digest = digestOf(monitored.path);
        } catch (const std::exception& failure) {
            digest = std::string("unreadable: ") + failure.what();
        }
        if (digest != monitored.digest) {
            monitored.digest = std::move(digest);
            m_changeLog.push_back(id);
        }
    }
}

std::vector<std::int32_t> Session::GetChangeLog() {
    return std::exchange(m_changeLog, {});
}

Sessions::Sessions(std::shared_ptr<IResourceFinder> finder)
    : m_finder(std::move(finder)),
      m_sessions(std::make_unique<SessionMap>([finder = m_finder](const auto&, std::int32_t) {
          return SessionAccessor(std::make_unique<Session>(finder));
      })) {}

std::string Sessions::newSession() {
    const auto sessions = m_sessions.exclusive();
    const std::int32_t id = sessions->add({});
    if (sessions->size() >= kSessionLimit) {
        sessions->remove(sessions->elements().begin()->first);
    }
    return std::to_string(id);
}

Sessions::SessionAccessor Sessions::find(const Query& query, const char* command, std::int32_t& id) const {
    if (!query.sessionGiven) {
        throw std::runtime_error(std::string("Session command '") + command +
                                 "' must be used with argument 'session'");
    }
    id = integerOf(query.session, "session id");
    const auto sessions = m_sessions.shared();
    if (!sessions->contains(id)) {
        throw std::runtime_error("'" + std::to_string(id) + "' is not a valid session id");
    }
    return sessions->get(id).second;
}

std::string Sessions::handle(const Query& query) {
    if (sessionCommandCount(query) > 1) {
        throw std::runtime_error(
            "Commands : new_session,remove_session,add_monitored_variable,remove_monitored_variable,"
            "get_change_log are exclusive");
    }
    if (query.newSession) {
        return newSession();
    }
    std::int32_t id = 0;
    if (query.removeSession) {
        find(query, "remove_session", id);
        const auto sessions = m_sessions.exclusive();
        if (sessions->contains(id)) {
            sessions->remove(id);
        }
        return kNoAnswer;
    }
    if (query.addMonitoredVariableGiven) {
        const SessionAccessor session = find(query, "add_monitored_variable", id);
        return std::to_string(session.exclusive()->AddMonitoredVariable(query.addMonitoredVariable));
    }
    if (query.removeMonitoredVariableGiven) {
        const SessionAccessor session = find(query, "remove_monitored_variable", id);
        session.exclusive()->RemoveMonitoredVariable(
            integerOf(query.removeMonitoredVariable, "monitored variable id"));
        return kNoAnswer;
    }
    const SessionAccessor session = find(query, "get_change_log", id);
    const auto writing = session.exclusive();
    writing->UpdateChangeLog();
    Json::Value log(Json::arrayValue);
    for (const std::int32_t monitor : writing->GetChangeLog()) {
        log.append(monitor);
    }
    return styledJson(log);
}

}  // namespace ovtx::network::restful_web_service_request_handler::v0
