// Sessions: a client watches variables and asks which of them have changed since it last asked.
//
//   GET ?new_session                                         -> 0
//   GET ?session=0&add_monitored_variable=/BoardInfo/NbSdiBoard   -> 0 (the monitor id)
//   GET ?session=0&get_change_log                             -> [ 0 ] once the value has changed
//
// A monitored variable is compared by the MD5 digest of its JSON text; it is reported only after a
// change that comes after it was added, once per call of the change log that sees the change.
// Sessions live in memory; at most 9 are kept: the tenth new session pushes out the oldest.
//
// `Sessions::handle` is the session road of a request: it runs the one session command of the
// query and returns the answer's body. The map of sessions and each session stand behind a
// `SharedSyncAccessor`: shared to look up, exclusive to change.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cpp_utils/constructable_object_map/constructable_object_map.h"
#include "network/restful_web_service_request_handler/query.h"
#include "network/restful_web_service_request_handler/resource.h"
#include "system/sync_ptr/shared_sync_ptr.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {

struct ISession {
    // Watches the variable at `path` (a path inside the tree, "/a/b"); returns the monitor id.
    virtual std::int32_t AddMonitoredVariable(const std::string& path) = 0;
    // Fails with "'<id>' is not a monitored variable of this session" for an unknown id.
    virtual void RemoveMonitoredVariable(std::int32_t id) = 0;
    // Compares every watched variable with its last digest and logs those that changed; a variable
    // that cannot be read any more counts as changed, once.
    virtual void UpdateChangeLog() = 0;
    // The monitor ids logged so far, in ascending order of the updates; empties the log.
    virtual std::vector<std::int32_t> GetChangeLog() = 0;
    virtual ~ISession() = default;
};

class Session : public ISession {
  public:
    explicit Session(std::shared_ptr<IResourceFinder> finder) : m_finder(std::move(finder)) {}

    std::int32_t AddMonitoredVariable(const std::string& path) override;
    void RemoveMonitoredVariable(std::int32_t id) override;
    void UpdateChangeLog() override;
    std::vector<std::int32_t> GetChangeLog() override;

  private:
    struct MonitoredVariable {
        std::string digest;
        std::string path;
    };
    std::string digestOf(const std::string& path) const;

    std::int32_t m_nextMonitorId = 0;
    std::shared_ptr<IResourceFinder> m_finder;
    std::map<std::int32_t, MonitoredVariable> m_monitored;
    std::vector<std::int32_t> m_changeLog;
};

class Sessions {
  public:
    // `finder` finds the monitored variables by their paths inside the tree.
    explicit Sessions(std::shared_ptr<IResourceFinder> finder);

    // Runs the session command of `query`; returns the answer's body.
    std::string handle(const Query& query);

  private:
    using SessionAccessor = system::shared_sync_ptr::v0::SharedSyncAccessor<ISession>;
    using SessionMap = cpp_utils::constructable_object_map::v2::ConstructableObjectMap<
        cpp_utils::constructable_object_map::v2::EmptyConfig, SessionAccessor>;

    std::string newSession();
    SessionAccessor find(const Query& query, const char* command, std::int32_t& id) const;

    std::shared_ptr<IResourceFinder> m_finder;
    system::shared_sync_ptr::v0::SharedSyncAccessor<SessionMap> m_sessions;
};

}  // namespace ovtx::network::restful_web_service_request_handler::v0
