#include "config/abstract_variable/raw_value.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "config/abstract_variable/object_construction.h"
#include "config/abstract_variable/testing/fixture_tree.h"
#include "testing/expect_failure.h"

namespace {

using namespace ovtx::config::abstract_variable::lib_abstract_variable::v2;
using namespace ovtx::config::abstract_variable::testing::v1;
using ovtx::test_support::v1::expectFailure;

std::vector<std::uint8_t> bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

// Reads a source to its end in small pieces.
std::string drain(IStreamReceiver& source) {
    std::string text;
    std::uint8_t buffer[2];
    while (const std::size_t count = source.receive(buffer, sizeof buffer)) {
        text.append(reinterpret_cast<const char*>(buffer), count);
    }
    return text;
}

void sendText(IStreamSender& sink, const std::string& text) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    std::size_t sent = 0;
    while (sent < text.size()) {
        sent += sink.send(bytes + sent, text.size() - sent);
    }
}

class RawValueTest : public ::testing::Test {
  protected:
    std::unique_ptr<IAbstractObject> child(const std::string& name) {
        return convertTo<IStruct>(m_root)->getChild(name)();
    }

    std::shared_ptr<FixtureData> m_data = std::make_shared<FixtureData>(makeFixtureData());
    ObjectFactory m_root = fixtureTree(m_data);
};

TEST_F(RawValueTest, StringSink_AssignsTheWholeTextOnceWhenDropped) {
    auto text = child("Text");
    auto sink = setRawValue(text.get());
    sendText(*sink, "ab");
    sendText(*sink, "cd");
    EXPECT_EQ(m_data->text, "hello");
    sink.reset();
    EXPECT_EQ(m_data->text, "abcd");

    setRawValue(text.get()).reset();
    EXPECT_EQ(m_data->text, "");
}

TEST_F(RawValueTest, StringSink_ThatTheVariableRefuses_FailsOnClose) {
    int stores = 0;
    auto refusing = GetVariable_Impl<std::string>([] { return std::string("kept"); },
                                                  [&](const std::string&) {
                                                      ++stores;
                                                      throw std::runtime_error("refused");
                                                  },
                                                  leafType<std::string>());
    auto sink = setRawValue(refusing.get());
    sendText(*sink, "text");
    expectFailure([&] { sink->close(); }, "refused");
    sink.reset();
    EXPECT_EQ(stores, 1) << "closed once; dropping stores nothing more";

    setRawValue(refusing.get()).reset();  // a refusal on drop goes unseen and ends nothing
    EXPECT_EQ(stores, 2);
}

TEST_F(RawValueTest, StringSource_IsASnapshot) {
    auto text = child("Text");
    auto source = GetRawValue(text.get());
    m_data->text = "changed";
    EXPECT_EQ(drain(*source), "hello");
}

TEST_F(RawValueTest, DataSink_IsTheObjectsWriter) {
    auto blob = child("Blob");
    auto sink = setRawValue(blob.get());
    sendText(*sink, "xyz");
    EXPECT_EQ(m_data->blob, bytesOf("xyz"));
    expectFailure([&] { GetRawValue(blob.get()); }, "Operation not supported");
}

TEST_F(RawValueTest, File_IsReadByStreamAndWrittenByWholeBuffers) {
    auto file = child("File");
    m_data->file.bytes = bytesOf("hello file");
    EXPECT_EQ(drain(*GetRawValue(file.get())), "hello file");

    AppendRawValue(file.get(), bytesOf("!"));
    EXPECT_EQ(m_data->file, (FileContent{"text/plain", bytesOf("hello file!")}));
    SetRawValue(file.get(), bytesOf("new"));
    EXPECT_EQ(m_data->file, (FileContent{"", bytesOf("new")}));
    expectFailure([&] { setRawValue(file.get()); }, "Operation not supported");
}

TEST_F(RawValueTest, OtherKinds_AreNotSupported) {
    for (const std::string name : {"Int32", "Locked", "Point", "Blob"}) {
        SCOPED_TRACE(name);
        expectFailure([&] { SetRawValue(child(name).get(), bytesOf("x")); }, "Operation not supported");
        expectFailure([&] { AppendRawValue(child(name).get(), bytesOf("x")); }, "Operation not supported");
    }
    expectFailure([&] { GetRawValue(child("Int32").get()); }, "Operation not supported");
    expectFailure([&] { setRawValue(child("Locked").get()); }, "Operation not supported");
    EXPECT_EQ(m_data->blob, (std::vector<std::uint8_t>{1, 2, 3}));
}

}  // namespace
