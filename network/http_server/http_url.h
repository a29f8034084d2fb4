// Where the daemon's HTTP service listens.
//
// The base is "http://*:80" (every address, port 80) unless the environment variable
// SDI_TAP_HTTP_BASE_URL gives another, such as "http://127.0.0.1:8081"; the service path follows
// it with nothing added between:
//
//   serviceUrl(httpBaseUrl(), "/sdi_tap/0")   // "http://*:80/sdi_tap/0"
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ovtx::network::http_server::v3 {

inline constexpr const char* kDefaultBaseUrl = "http://*:80";
inline constexpr const char* kBaseUrlVariable = "SDI_TAP_HTTP_BASE_URL";

// SDI_TAP_HTTP_BASE_URL when it is set and not empty, else `defaultBase`.
std::string httpBaseUrl(const std::string& defaultBase = kDefaultBaseUrl);

std::string serviceUrl(const std::string& base, const std::string& servicePath);

// The parts of a bound URL.
struct BoundUrl {
    std::string host;  // "*" and "+" stand for every address
    unsigned port = 80;
    std::string path;  // no trailing "/"; empty for the whole server
};

// Parses "http://host[:port][/path]"; nothing for any other form.
std::optional<BoundUrl> parseBoundUrl(const std::string& url);

// A request target split into its decoded path and its query (from the "?" on, undecoded). The
// absolute form ("http://host/a?b") is accepted. Nothing for a path that does not start with
// "/", holds a malformed escape or an escaped NUL, or climbs above the root with "..".
struct RequestTarget {
    std::string path;
    std::string query;
};
std::optional<RequestTarget> splitTarget(std::string_view target);

// True when `path` is `boundPath` itself or lies below it.
bool isUnderPath(const std::string& path, const std::string& boundPath);

}  // namespace ovtx::network::http_server::v3
