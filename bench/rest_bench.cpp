// A GET of a large map through the REST request handler, in-process (no HTTP), beside jsoncpp
// alone writing the same document.
//
// The map: the 10,000 elements of the JSON benchmarks' tree (bench/large_tree.h). The handler's
// figure covers the whole request: query, path, views, the styled text written straight from the
// walk and the copy into the answer's output buffer. jsoncpp's figures are the writing of a JSON
// value alone, made once beforehand, with the StyledWriter whose text the handler answers (the
// answer is checked to be the same bytes) and with the StreamWriterBuilder. The last line is the
// variable layer's styled text without the handler, which tells the handler's own share. Each
// figure is the best of 5 runs.
#include <json/writer.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "bench/large_tree.h"
#include "config/abstract_variable/value_json.h"
#include "network/restful_web_service_request_handler/data_exchanger.h"

namespace {

using namespace ovtx::bench::large_tree;
namespace rest = ovtx::network::restful_web_service_request_handler::v0;
using ovtx::cpp_utils::stream_io::v1::IStreamSender;
using ovtx::network::http_server::v3::HttpVerb;
using ovtx::network::http_server::v3::Request;
using ovtx::network::http_server_request_handler::v0::HttpHeader;
using ovtx::network::http_server_request_handler::v0::IAnswerSender;

// Collects the body in a buffer that keeps its room from one answer to the next, as the server's
// connection does with its output.
class BodyBuffer : public IStreamSender {
  public:
    std::size_t send(const std::uint8_t* bytes, std::size_t size) override {
        text.append(reinterpret_cast<const char*>(bytes), size);
        return size;
    }
    std::string text;
};

class BenchAnswer : public IAnswerSender {
  public:
    BenchAnswer(BodyBuffer& body) : m_body(body) {
        m_body.text.clear();
        m_request.verb = HttpVerb::Get;
        m_request.path = "/svc/Elements";
        m_request.query = "?get";
    }
    Request& GetRequest() override { return m_request; }
    void SendHeader(const HttpHeader&) override {}
    IStreamSender& GetBodySender() override { return m_body; }

  private:
    BodyBuffer& m_body;
    Request m_request;
};

constexpr int kRuns = 5;

double bestMs(const std::function<void()>& run) {
    double best = 1e300;
    for (int count = 0; count < kRuns; ++count) {
        const auto start = std::chrono::steady_clock::now();
        run();
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
        best = std::min(best, elapsed.count());
    }
    return best;
}

}  // namespace

int main() {
    const Declaration<Tree> declaration = treeDeclaration();
    const auto tree = makeTree();
    const ObjectFactory root = declaration.factory(tree);
    rest::DataExchanger handler(root, nullptr, "/svc", rest::newNoSaver(), 15);

    const AbstractType& mapType = *declaration.type().get<StructType>().children[0].type;
    const Json::Value value =
        SerializeValueToJson(convertTo<IStruct>(root)->getChild("Elements")().get(), mapType, {});
    std::string styled;
    const double styledWrite = bestMs([&] { styled = Json::StyledWriter().write(value); });
    std::string layered;
    const double layer = bestMs([&] {
        layered =
            SerializeValueToStyledJson(convertTo<IStruct>(root)->getChild("Elements")().get(), mapType, {});
    });
    std::string streamed;
    const double streamWrite =
        bestMs([&] { streamed = Json::writeString(Json::StreamWriterBuilder(), value); });

    BodyBuffer body;
    const double handled = bestMs([&] {
        BenchAnswer answer(body);
        handler.Handle(&answer);
    });
    const std::string& answer = body.text;

    std::printf("rest_bench: GET of a map of %d elements of 12 leaves, %.1f MB of JSON, best of %d runs\n",
                kElements, static_cast<double>(answer.size()) / 1e6, kRuns);
    std::printf("  DataExchanger ?get             %8.1f ms\n", handled);
    std::printf("  jsoncpp StyledWriter alone     %8.1f ms   ratio %5.2f\n", styledWrite,
                handled / styledWrite);
    std::printf("  jsoncpp StreamWriterBuilder    %8.1f ms   ratio %5.2f\n", streamWrite,
                handled / streamWrite);
    std::printf("  variable layer's styled text   %8.1f ms   ratio %5.2f   handler / this %5.2f\n", layer,
                layer / styledWrite, handled / layer);
    if (answer != styled) {
        std::fprintf(stderr, "rest_bench: the handler's answer differs from jsoncpp's text\n");
        return 1;
    }
    return 0;
}
