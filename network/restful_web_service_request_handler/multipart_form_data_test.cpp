#include "network/restful_web_service_request_handler/multipart_form_data.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "config/abstract_variable/testing/fixture_tree.h"
#include "network/restful_web_service_request_handler/data_exchanger.h"
#include "network/restful_web_service_request_handler/testing/recorded_answer.h"
#include "testing/expect_failure.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {
namespace {

namespace fixture = config::abstract_variable::testing::v1;
using test_support::v1::expectFailure;

std::string extract(const std::string& body) {
    Bytes data;
    auto extractor = newMultiPartFormDataParser(std::make_unique<DataSender>(data));
    extractor->send(reinterpret_cast<const std::uint8_t*>(body.data()), body.size());
    extractor->close();
    return std::string(data.begin(), data.end());
}

std::string form(const std::string& boundary, const std::string& data, const std::string& lineEnd = "\r\n") {
    return "--" + boundary + lineEnd + "Content-Disposition: form-data; name=\"file\"; filename=\"a.bin\"" +
           lineEnd + "Content-Type: application/octet-stream" + lineEnd + lineEnd + data + "\r\n--" +
           boundary + "--" + lineEnd;
}

TEST(MultiPartFormDataTest, FirstPart_DataArrivesWithoutBoundaryAndHeaders) {
    const std::string binary("line one\r\nline two\n\0\xff end", 24);
    const std::vector<std::pair<std::string, std::string>> cases = {
        {form("XyZ", "hello"), "hello"},
        {form("XyZ", ""), ""},
        {form("XyZ", binary), binary},
        {form("XyZ", "unix lines", "\n"), "unix lines"},
        {form("XyZ", "one") + "--XyZ\r\n\r\nsecond part\r\n--XyZ--\r\n", "one"},
        {form(std::string(120, 'b'), "long boundary"), "long boundary"},
        {"--b\r\n\r\nno closing boundary\r\n", "no closing boundary"},
    };
    for (const auto& [body, data] : cases) {
        EXPECT_EQ(extract(body), data) << body;
    }
}

TEST(MultiPartFormDataTest, BrokenForms_FailWithTheirText) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "Data is too small to be an html form."},
        {"-", "Data is too small to be an html form."},
        {"--b\r\nheader only\r\n", "multi part form data does not contain expected CRLF"},
        {"--b\r\n\r\nX--b--\r\n", "multi part form data does not contain expected CRLF"},
        {"--b\r\n\r\nno line end", "multi part form data does not contain expected CRLF"},
    };
    for (const auto& [body, text] : cases) {
        expectFailure([&] { extract(body); }, text);
    }
}

TEST(MultiPartFormDataTest, FormUpload_SetsAFileOrAStringOfTheTree) {
    auto data = std::make_shared<fixture::FixtureData>(fixture::makeFixtureData());
    const av::ObjectFactory root = fixture::fixtureTree(data);
    DataExchanger handler(root, nullptr, "/svc", std::shared_ptr<IOnChangeNotifier>(newNoSaver()), 15);
    const std::string query = "?set&parameter_format=multipart_form-data";
    for (const std::string path : {"/svc/File", "/svc/Text"}) {
        testing::v0::RecordedAnswer answer(http_server::v3::HttpVerb::Post, path, query,
                                           form("q", "uploaded"));
        handler.Handle(&answer);
        EXPECT_EQ(answer.header().status, 200);
    }
    EXPECT_EQ(data->file, (av::FileContent{"", {'u', 'p', 'l', 'o', 'a', 'd', 'e', 'd'}}));
    EXPECT_EQ(data->text, "uploaded");
}

}  // namespace
}  // namespace ovtx::network::restful_web_service_request_handler::v0
