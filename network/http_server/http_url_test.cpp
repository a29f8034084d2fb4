#include "network/http_server/http_url.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace ovtx::network::http_server::v3 {
namespace {

TEST(HttpUrlTest, BaseUrl_EnvironmentReplacesTheDefault) {
    const struct {
        const char* variable;
        std::string base;
    } cases[] = {
        {nullptr, "http://*:80"}, {"", "http://*:80"}, {"http://127.0.0.1:8081", "http://127.0.0.1:8081"}};
    for (const auto& c : cases) {
        if (c.variable == nullptr) {
            ::unsetenv(kBaseUrlVariable);
        } else {
            ::setenv(kBaseUrlVariable, c.variable, 1);
        }
        EXPECT_EQ(serviceUrl(httpBaseUrl(), "/sdi_tap/0"), c.base + "/sdi_tap/0");
    }
    ::unsetenv(kBaseUrlVariable);
}

TEST(HttpUrlTest, BoundUrl_Parts) {
    const struct {
        std::string url;
        bool valid;
        std::string host;
        unsigned port;
        std::string path;
    } cases[] = {
        {"http://*:80/sdi_tap/0", true, "*", 80, "/sdi_tap/0"},
        {"http://+/sdi_tap/4K/", true, "+", 80, "/sdi_tap/4K"},
        {"http://127.0.0.1:8081", true, "127.0.0.1", 8081, ""},
        {"http://[::1]:9/a", true, "::1", 9, "/a"},
        {"http://localhost:0/", true, "localhost", 0, ""},
        {"https://*:443/a", false, "", 0, ""},
        {"http://*:http/a", false, "", 0, ""},
        {"http://:80/a", false, "", 0, ""},
        {"http://*:70000/", false, "", 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url);
        const auto parsed = parseBoundUrl(c.url);
        ASSERT_EQ(parsed.has_value(), c.valid);
        if (parsed) {
            EXPECT_EQ(parsed->host, c.host);
            EXPECT_EQ(parsed->port, c.port);
            EXPECT_EQ(parsed->path, c.path);
        }
    }
}

}  // namespace
}  // namespace ovtx::network::http_server::v3
