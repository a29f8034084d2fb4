#include "network/restful_web_service_request_handler/multipart_form_data.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace ovtx::network::restful_web_service_request_handler::v0 {

using cpp_utils::stream_io::v1::IStreamSender;

namespace {

constexpr std::size_t kMaxBoundary = 100;

class MultiPartFormDataExtractor : public IStreamSender {
  public:
    explicit MultiPartFormDataExtractor(std::unique_ptr<IStreamSender> target)
        : m_target(std::move(target)) {}

    ~MultiPartFormDataExtractor() override {
        try {
            close();
        } catch (...) {
            // A caller that wants to see the failure closes the sink itself.
        }
    }

    std::size_t send(const std::uint8_t* bytes, std::size_t size) override {
        m_collected.insert(m_collected.end(), bytes, bytes + size);
        return size;
    }

    void close() override {
        if (m_closed) {
            return;
        }
        m_closed = true;
        const std::string_view data = extract();
        for (std::size_t sent = 0; sent < data.size();) {
            sent +=
                m_target->send(reinterpret_cast<const std::uint8_t*>(data.data()) + sent, data.size() - sent);
        }
        m_target->close();
    }

  private:
    std::string_view extract() const {
        const std::string_view body(reinterpret_cast<const char*>(m_collected.data()), m_collected.size());
        if (body.size() < 2) {
            throw std::runtime_error("Data is too small to be an html form.");
        }
        std::string_view boundary = body.substr(0, std::min({body.find('\n'), kMaxBoundary, body.size()}));
        if (boundary.ends_with('\r')) {
            boundary.remove_suffix(1);
        }
        const std::size_t dataStart = endOfPartHeaders(body);
        std::size_t next = boundary.empty() ? std::string_view::npos : body.find(boundary, dataStart);
        if (next == std::string_view::npos) {
            next = body.size();
        }
        if (next < dataStart + 2 || body.substr(next - 2, 2) != "\r\n") {
            throw std::runtime_error("multi part form data does not contain expected CRLF");
        }
        return body.substr(dataStart, next - 2 - dataStart);
    }

    // Behind the empty line that ends the first part's headers (the end when there is none).
    static std::size_t endOfPartHeaders(std::string_view body) {
        std::size_t lineStart = body.find('\n');
        while (lineStart != std::string_view::npos) {
            ++lineStart;
            const std::size_t lineEnd = body.find('\n', lineStart);
            if (lineEnd == std::string_view::npos) {
                break;
            }
            const std::string_view line = body.substr(lineStart, lineEnd - lineStart);
            if (line.empty() || line == "\r") {
                return lineEnd + 1;
            }
            lineStart = lineEnd;
        }
        return body.size();
    }

    std::unique_ptr<IStreamSender> m_target;
    std::vector<std::uint8_t> m_collected;
    bool m_closed = false;
};

}  // namespace

std::unique_ptr<IStreamSender> newMultiPartFormDataParser(std::unique_ptr<IStreamSender> target) {
    return std::make_unique<MultiPartFormDataExtractor>(std::move(target));
}

}  // namespace ovtx::network::restful_web_service_request_handler::v0
