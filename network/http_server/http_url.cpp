#include "network/http_server/http_url.h"

#include <cstdlib>
#include <utility>
#include <vector>

namespace ovtx::network::http_server::v3 {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

std::optional<std::string> percentDecoded(std::string_view text) {
    if (text.find('%') == std::string_view::npos) {
        return std::string(text);
    }
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        if (i + 2 >= text.size()) {
            return std::nullopt;
        }
        const int high = hexValue(text[i + 1]);
        const int low = hexValue(text[i + 2]);
        if (high < 0 || low < 0 || (high == 0 && low == 0)) {
            return std::nullopt;
        }
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return decoded;
}

// Resolves "." and ".." segments; nothing when ".." would climb above the root.
std::optional<std::string> withoutDotSegments(const std::string& path) {
    std::vector<std::string> segments;
    std::size_t start = 1;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string::npos) {
            end = path.size();
        }
        const std::string segment = path.substr(start, end - start);
        const bool last = end == path.size();
        if (segment == "..") {
            if (segments.empty()) {
                return std::nullopt;
            }
            segments.pop_back();
            if (last) {
                segments.emplace_back();
            }
        } else if (segment == ".") {
            if (last) {
                segments.emplace_back();
            }
        } else {
            segments.push_back(segment);
        }
        start = end + 1;
    }
    std::string resolved;
    for (const auto& segment : segments) {
        resolved += "/" + segment;
    }
    return resolved.empty() ? "/" : resolved;
}

}  // namespace

std::string httpBaseUrl(const std::string& defaultBase) {
    const char* value = std::getenv(kBaseUrlVariable);
    return value != nullptr && *value != '\0' ? value : defaultBase;
}

std::string serviceUrl(const std::string& base, const std::string& servicePath) {
    return base + servicePath;
}

std::optional<BoundUrl> parseBoundUrl(const std::string& url) {
    const std::string scheme = "http://";
    if (url.compare(0, scheme.size(), scheme) != 0) {
        return std::nullopt;
    }
    const std::size_t authorityEnd = url.find('/', scheme.size());
    const std::string authority = url.substr(scheme.size(), authorityEnd - scheme.size());
    BoundUrl parsed;
    const std::size_t colon = authority.rfind(':');
    const bool bracketed = !authority.empty() && authority.front() == '[';
    const bool hasPort = colon != std::string::npos && (!bracketed || authority[colon - 1] == ']');
    parsed.host = authority.substr(0, hasPort ? colon : std::string::npos);
    if (bracketed) {
        if (parsed.host.size() < 2 || parsed.host.back() != ']') {
            return std::nullopt;
        }
        parsed.host = parsed.host.substr(1, parsed.host.size() - 2);
    }
    if (hasPort) {
        const std::string digits = authority.substr(colon + 1);
        if (digits.empty() || digits.size() > 5 ||
            digits.find_first_not_of("0123456789") != std::string::npos) {
            return std::nullopt;
        }
        parsed.port = static_cast<unsigned>(std::stoul(digits));
        if (parsed.port > 65535) {
            return std::nullopt;
        }
    }
    if (parsed.host.empty()) {
        return std::nullopt;
    }
    if (authorityEnd != std::string::npos) {
        parsed.path = url.substr(authorityEnd);
        while (!parsed.path.empty() && parsed.path.back() == '/') {
            parsed.path.pop_back();
        }
    }
    return parsed;
}

bool isUnderPath(const std::string& path, const std::string& boundPath) {
    if (path.compare(0, boundPath.size(), boundPath) != 0) {
        return false;
    }
    return path.size() == boundPath.size() || path[boundPath.size()] == '/';
}

std::optional<RequestTarget> splitTarget(std::string_view target) {
    if (target.substr(0, 7) == "http://" || target.substr(0, 8) == "https://") {
        const std::size_t pathStart = target.find_first_of("/?", target.find("//") + 2);
        target = pathStart == std::string_view::npos ? std::string_view("/") : target.substr(pathStart);
    }
    const std::size_t question = target.find('?');
    RequestTarget split;
    if (question != std::string_view::npos) {
        split.query = std::string(target.substr(question));
        target = target.substr(0, question);
    }
    if (target.empty() || target.front() != '/') {
        if (!target.empty() || split.query.empty()) {
            return std::nullopt;
        }
        target = "/";
    }
    auto decoded = percentDecoded(target);
    if (!decoded) {
        return std::nullopt;
    }
    // The usual path has no "." or ".." segment: it stands as it is.
    if (decoded->find("/.") == std::string::npos) {
        split.path = std::move(*decoded);
        return split;
    }
    const auto resolved = withoutDotSegments(*decoded);
    if (!resolved) {
        return std::nullopt;
    }
    split.path = *resolved;
    return split;
}

}  // namespace ovtx::network::http_server::v3
