#include "network/http_server/wire_format.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "network/http_server/requests_source.h"
#include "system/socket/socket_io.h"

namespace ovtx::network::http_server::v3::detail {

using namespace system::socket::v1;

namespace {

using http_server_request_handler::v0::HttpHeader;
namespace ids = http_server_request_handler::v0;

constexpr std::size_t kMaxHeaderPart = 0xFFFF;

constexpr std::array<const char*, ids::HttpHeaderResponseMaximum> kKnownHeaderNames = {"Cache-Control",
                                                                                       "Connection",
                                                                                       "Date",
                                                                                       "Keep-Alive",
                                                                                       "Pragma",
                                                                                       "Trailer",
                                                                                       "Transfer-Encoding",
                                                                                       "Upgrade",
                                                                                       "Via",
                                                                                       "Warning",
                                                                                       "Allow",
                                                                                       "Content-Length",
                                                                                       "Content-Type",
                                                                                       "Content-Encoding",
                                                                                       "Content-Language",
                                                                                       "Content-Location",
                                                                                       "Content-MD5",
                                                                                       "Content-Range",
                                                                                       "Expires",
                                                                                       "Last-Modified",
                                                                                       "Accept-Ranges",
                                                                                       "Age",
                                                                                       "ETag",
                                                                                       "Location",
                                                                                       "Proxy-Authenticate",
                                                                                       "Retry-After",
                                                                                       "Server",
                                                                                       "Set-Cookie",
                                                                                       "Vary",
                                                                                       "WWW-Authenticate"};

void checkLength(const std::string& text) {
    if (text.size() > kMaxHeaderPart) {
        throw Exception("Could not send Http request answer : headers too long");
    }
}

bool isControl(unsigned char c) {
    return c < 0x20 || c == 0x7f;
}

bool isTokenCharacter(unsigned char c) {
    static const std::string kSeparators = "()<>@,;:\\\"/[]?={} \t";
    return !isControl(c) && c < 0x80 && kSeparators.find(static_cast<char>(c)) == std::string::npos;
}

std::string cleanText(const std::string& text) {
    std::string clean = text;
    for (char& c : clean) {
        if (isControl(static_cast<unsigned char>(c))) {
            c = ' ';
        }
    }
    return clean;
}

std::string cleanName(const std::string& name) {
    std::string clean;
    for (const char c : name) {
        if (isTokenCharacter(static_cast<unsigned char>(c))) {
            clean += c;
        }
    }
    return clean;
}

void appendField(std::string& head, const std::string& name, const std::string& value) {
    if (!name.empty()) {
        head.append(name).append(": ").append(cleanText(value)).append("\r\n");
    }
}

}  // namespace

std::string formatHead(const HttpHeader& header) {
    if (header.status > 999) {
        throw Exception("Could not send Http request answer: " + errorText(EINVAL));
    }
    char status[8];
    std::snprintf(status, sizeof status, "%03u", static_cast<unsigned>(header.status));
    std::string head = "HTTP/1.1 ";
    head.append(status).append(" ").append(cleanText(header.reason)).append("\r\n");
    for (const auto& [id, value] : header.knownHeaders) {
        checkLength(value);
        if (id < 0 || id >= ids::HttpHeaderResponseMaximum) {
            throw std::range_error("Invalid HTTP header ID");
        }
        appendField(head, kKnownHeaderNames[static_cast<std::size_t>(id)], value);
    }
    for (const auto& [name, value] : header.otherHeaders) {
        checkLength(name);
        checkLength(value);
        appendField(head, cleanName(name), value);
    }
    return head.append("\r\n");
}

std::string plainAnswer(std::uint16_t status, const std::string& reason, bool closing) {
    HttpHeader header(status, reason);
    header.knownHeaders.emplace(ids::HttpHeaderContentLength, std::to_string(reason.size()));
    header.knownHeaders.emplace(ids::HttpHeaderContentType, "text/plain");
    if (closing) {
        header.knownHeaders.emplace(ids::HttpHeaderConnection, "close");
    }
    return formatHead(header) + reason;
}

std::string unauthorizedAnswer(const std::string& challenge, bool closing) {
    HttpHeader header(401, "Unauthorized");
    header.knownHeaders.emplace(ids::HttpHeaderWwwAuthenticate, challenge);
    header.knownHeaders.emplace(ids::HttpHeaderContentLength, "0");
    if (closing) {
        header.knownHeaders.emplace(ids::HttpHeaderConnection, "close");
    }
    return formatHead(header);
}

}  // namespace ovtx::network::http_server::v3::detail
