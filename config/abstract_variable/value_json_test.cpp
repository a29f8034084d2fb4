#include "config/abstract_variable/value_json.h"

#include <gtest/gtest.h>

#include <json/writer.h>

#include <atomic>
#include <limits>
#include <memory>

#include "config/abstract_variable/base64.h"
#include "config/abstract_variable/declaration.h"
#include "config/abstract_variable/testing/fixture_helpers.h"
#include "testing/expect_failure.h"

namespace {

using namespace ovtx::config::abstract_variable::lib_abstract_variable::v2;
using namespace ovtx::config::abstract_variable::testing::v1;
using ovtx::test_support::v1::expectFailure;
using namespace std::string_literals;

constexpr const char* kIncorrectType = "Cannot unserialize json: incorrect type";

class ValueJsonTest : public ::testing::Test {
  protected:
    std::unique_ptr<IAbstractObject> child(const std::string& name) {
        return convertTo<IStruct>(m_root)->getChild(name)();
    }
    Json::Value serializeChild(const std::string& name, const std::vector<std::string>& filter = {}) {
        return SerializeValueToJson(child(name).get(), fixtureChildType(name), filter);
    }
    std::string unserializeChild(const std::string& name, const std::string& json, bool allowPartial,
                                 bool parallel = false) {
        return UnserializeValueFromJson(parseJson(json), child(name).get(), fixtureChildType(name),
                                        allowPartial, parallel);
    }

    std::shared_ptr<FixtureData> m_data = std::make_shared<FixtureData>(makeFixtureData());
    ObjectFactory m_root = fixtureTree(m_data);
};

TEST_F(ValueJsonTest, Serialize_FixtureTree_GivesTheShapeOfEveryVariety) {
    const Json::Value expected = parseJson(R"({
        "Int32": 7, "Int64": 1099511627776, "Flag": true, "Text": "hello", "Colour": "Green",
        "Point": {"X": 1, "Y": 2},
        "Points": [{"X": 3, "Y": 4}, {"X": 5, "Y": 6}],
        "Fixed": [10, 20, 30],
        "ById": {"4": {"X": 7, "Y": 8}},
        "ByName": {"a": "alpha", "b": "beta"},
        "Channels": {"0": {"_configuration_": {"Name": "main", "Colour": "Red"},
                           "_state_": {"Level": 0, "Muted": false}}},
        "Sum": null,
        "File": {"MimeType": "text/plain", "Data": "YWJj"},
        "Blob": "AQID",
        "Locked": 42,
        "Choice": {"_type_": "Point", "_value_": {"Point": {"X": 9, "Y": 10}}},
        "Selector": {"_type_": "Count", "_value_": {"Point": {"X": 11, "Y": 12}, "Count": 13}}})");
    EXPECT_EQ(SerializeValueToJson(m_root().get(), fixtureType(), {}), expected);
}

TEST_F(ValueJsonTest, RoundTrip_RestoresEveryValueStrictly_SerialAndParallel) {
    const Json::Value saved = SerializeValueToJson(m_root().get(), fixtureType(), {});
    for (bool parallel : {false, true}) {
        auto other = std::make_shared<FixtureData>();
        other->fixed = {0, 0, 0};
        other->locked = 42;  // read-only members are skipped, so the strict run leaves "Locked" out
        Json::Value writable = saved;
        writable.removeMember("Locked");
        // A read-only member in strict mode is a failure, so the root is written member by member.
        ObjectFactory target = fixtureTree(other);
        auto structure = convertTo<IStruct>(target);
        for (const auto& member : writable.getMemberNames()) {
            const std::string log =
                UnserializeValueFromJson(writable[member], structure->getChild(member)().get(),
                                         fixtureChildType(member), false, parallel);
            EXPECT_EQ(log, "") << member;
        }
        EXPECT_EQ(SerializeValueToJson(target().get(), fixtureType(), {}), saved) << "parallel " << parallel;
        EXPECT_EQ(other->channels.get(0).first, (Settings{"main", Colour::Red}));
    }
}

TEST_F(ValueJsonTest, Filter_NullsWholeVarietiesAtAnyDepthAndKeepsTheMember) {
    const Json::Value filtered = SerializeValueToJson(m_root().get(), fixtureType(), {"function", "int32"});
    EXPECT_TRUE(filtered.isMember("Sum"));
    EXPECT_TRUE(filtered["Sum"].isNull());
    EXPECT_TRUE(filtered["Int32"].isNull());
    EXPECT_EQ(filtered["Point"], parseJson(R"({"X": null, "Y": null})"));
    EXPECT_EQ(filtered["Channels"]["0"]["_state_"], parseJson(R"({"Level": null, "Muted": false})"));
    EXPECT_EQ(filtered["Text"], "hello");
    // The filter sees the wrapper and, behind it, what it wraps.
    EXPECT_TRUE(filtered["Locked"].isNull());
    EXPECT_TRUE(serializeChild("Locked", {"read_only"}).isNull());
    EXPECT_EQ(serializeChild("Locked", {"function"}), 42);
    EXPECT_TRUE(SerializeValueToJson(m_root().get(), fixtureType(), {"struct"}).isNull());
}

// The styled text must stay byte for byte what jsoncpp's StyledWriter makes of the JSON value:
// REST answers and their MD5 digests are compared by clients.
struct StyledTextCase {
    const char* name;
    void (*change)(FixtureData&);
    std::vector<std::string> filter;
};

class StyledJsonTextTest : public ::testing::TestWithParam<StyledTextCase> {};

TEST_P(StyledJsonTextTest, Text_IsWhatStyledWriterWritesOfTheValue) {
    auto data = std::make_shared<FixtureData>(makeFixtureData());
    GetParam().change(*data);
    const ObjectFactory root = fixtureTree(data);
    const auto check = [&](IAbstractObject* object, const AbstractType& type, const std::string& where) {
        const std::string expected =
            Json::StyledWriter().write(SerializeValueToJson(object, type, GetParam().filter));
        EXPECT_EQ(SerializeValueToStyledJson(object, type, GetParam().filter), expected) << where;
    };
    check(root().get(), fixtureType(), "root");
    for (const auto& child : fixtureType().get<StructType>().children) {
        check(convertTo<IStruct>(root)->getChild(child.name)().get(), *child.type, child.name);
    }
}

INSTANTIATE_TEST_SUITE_P(
    ValueJsonTest, StyledJsonTextTest,
    ::testing::Values(
        StyledTextCase{"Fixture", [](FixtureData&) {}, {}},
        StyledTextCase{"Filtered", [](FixtureData&) {}, {"function", "int32", "data"}},
        StyledTextCase{"WholeRootFiltered", [](FixtureData&) {}, {"struct"}},
        StyledTextCase{"EscapedTexts",
                       [](FixtureData& data) {
                           data.text = "q\"b\\s/\x01\t\n\x7f caf\xc3\xa9 \xf0\x9f\x8e\xa5 nul\0end"s;
                           data.byName = {{"", "empty"},
                                          {"caf\xc3\xa9", "x"},
                                          {"\"q\"", "y"},
                                          {"k\0tail"s, "nul"},
                                          {"tab\t", std::string(1, '\0')},
                                          {"trailing ", "space "}};
                       },
                       {}},
        StyledTextCase{
            "LongTexts",
            [](FixtureData& data) {
                data.text = std::string(300, 'x');
                data.blob.assign(600, 0xfe);
                data.byName = {{"plain", std::string(256, 'y')}, {"escaped", std::string(300, '\n')}};
            },
            {}},
        StyledTextCase{"KeysSortedAsText",
                       [](FixtureData& data) {
                           data.byId = {{-1, {1, 1}}, {2, {2, 2}}, {10, {3, 3}}, {9, {4, 4}}};
                           data.byName = {{"b", "1"}, {"B", "2"}, {"a", "3"}, {"10", "4"}, {"9", "5"}};
                       },
                       {}},
        StyledTextCase{"ShortArrayOnOneLine",
                       [](FixtureData& data) {
                           data.fixed = {1, -2, 3};
                       },
                       {}},
        StyledTextCase{"ArrayOf24ZerosAtTheMargin",
                       [](FixtureData& data) {
                           data.fixed = decltype(data.fixed)(24);
                           data.blob.clear();
                       },
                       {}},
        StyledTextCase{
            "ArrayOf25OnManyLines", [](FixtureData& data) { data.fixed = decltype(data.fixed)(25); }, {}},
        StyledTextCase{"LongLineOnManyLines",
                       [](FixtureData& data) {
                           data.fixed = {1000000000, -1000000000, 2000000000, -2000000000, 2147483647, 7};
                       },
                       {}},
        StyledTextCase{"LineAtTheMargin",
                       [](FixtureData& data) {
                           // 4 + 2 * 5 + 6 * 10 = 74 characters: one too many for one line.
                           data.fixed = {1000000000, 1000000000, 1000000000,
                                         1000000000, 1000000000, 1000000000};
                       },
                       {}},
        StyledTextCase{"LineJustUnderTheMargin",
                       [](FixtureData& data) {
                           data.fixed = {1000000000, 1000000000, 1000000000,
                                         1000000000, 1000000000, 100000000};
                       },
                       {}},
        StyledTextCase{"EmptyContainers",
                       [](FixtureData& data) {
                           data.points.clear();
                           data.byId.clear();
                           data.byName.clear();
                           data.fixed = {};
                           data.int64 = std::numeric_limits<std::int64_t>::min();
                       },
                       {}},
        StyledTextCase{"ArrayOfObjects",
                       [](FixtureData& data) {
                           data.points.assign(30, Point{-1, 2});
                       },
                       {"int32"}}),
    [](const ::testing::TestParamInfo<StyledTextCase>& info) { return std::string(info.param.name); });

TEST_F(ValueJsonTest, TypeThatDoesNotMatch_FailsInBothDirections) {
    expectFailure([&] { SerializeValueToJson(child("Int32").get(), fixtureChildType("Text"), {}); },
                  "Cannot serialize object : given type does not match the given object");
    expectFailure(
        [&] {
            UnserializeValueFromJson(parseJson("\"x\""), child("Int32").get(), fixtureChildType("Text"), true,
                                     false);
        },
        "Cannot unserialize object : given type does not match the given object");
    expectFailure([&] { SerializeValueToJson(child("Locked").get(), fixtureChildType("Int32"), {}); },
                  "Cannot serialize object : given type does not match the given object");
}

TEST_F(ValueJsonTest, NullForContainers_ActsAsEmptyValue) {
    EXPECT_EQ(unserializeChild("Points", "null", false), "");
    EXPECT_TRUE(m_data->points.empty());
    EXPECT_EQ(unserializeChild("ById", "null", false), "");
    EXPECT_TRUE(m_data->byId.empty());
    expectFailure([&] { unserializeChild("Point", "null", false); }, "Missing child \"X\" in struct");
    expectFailure([&] { unserializeChild("Choice", "null", false); },
                  "Union description must contain field '_type_'");
    expectFailure([&] { unserializeChild("File", "null", false); }, kIncorrectType);

    // Tolerant: a struct reports each missing child and keeps its values; a union with no "_type_"
    // is set to the empty name, which no union has.
    EXPECT_EQ(unserializeChild("Point", "null", true),
              "Missing child \"X\" in struct\nMissing child \"Y\" in struct\n");
    EXPECT_EQ(m_data->point, (Point{1, 2}));
    expectFailure([&] { unserializeChild("Choice", "null", true); }, "Invalid union type");

    auto nothing = std::make_shared<Void>();
    const auto& empty = declare<Void>();
    EXPECT_EQ(SerializeValueToJson(empty.view(nothing).get(), empty.type(), {}),
              Json::Value(Json::objectValue));
    EXPECT_EQ(UnserializeValueFromJson(Json::Value(), empty.view(nothing).get(), empty.type(), false, false),
              "");
}

TEST_F(ValueJsonTest, Leaves_AcceptTheirJsonKindsAndLogWhatTheyRefuse) {
    EXPECT_EQ(unserializeChild("Flag", "0", false), "");
    EXPECT_FALSE(m_data->flag);
    EXPECT_EQ(unserializeChild("Flag", "-3", false), "");
    EXPECT_TRUE(m_data->flag);
    EXPECT_EQ(unserializeChild("Int64", "true", false), "");
    EXPECT_EQ(m_data->int64, 1);
    EXPECT_EQ(unserializeChild("Int64", "-9000000000", false), "");
    EXPECT_EQ(m_data->int64, -9000000000);
    EXPECT_EQ(unserializeChild("Colour", "\"5\"", false), "");
    EXPECT_EQ(m_data->colour, Colour::Blue);

    struct Refusal {
        std::string child;
        std::string json;
    };
    for (const auto& [name, json] : std::vector<Refusal>{{"Text", "5"},
                                                         {"Flag", "1.5"},
                                                         {"Flag", "\"true\""},
                                                         {"Int64", "1.5"},
                                                         {"Colour", "2"},
                                                         {"Int32", "1.5"},
                                                         {"Int32", "true"}}) {
        expectFailure([&] { unserializeChild(name, json, false); }, kIncorrectType);
    }
    expectFailure([&] { unserializeChild("Int32", "3000000000", true); },
                  "unsigned integer out of signed int range");
    expectFailure([&] { unserializeChild("Int32", "-3000000000", true); },
                  "unsigned integer out of signed int range");
}

TEST_F(ValueJsonTest, Int32_AloneSkipsANumberThatIsNotAPlainIntegerUnderAllowPartial) {
    EXPECT_EQ(unserializeChild("Int32", "1.5", true), "Not an int32 variable\n");
    EXPECT_EQ(m_data->int32, 7);
    EXPECT_EQ(unserializeChild("Point", R"({"X": 2.5, "Y": 3})", true), "Not an int32 variable\n");
    EXPECT_EQ(m_data->point, (Point{1, 3}));
    expectFailure([&] { unserializeChild("Int64", "1.5", true); }, kIncorrectType);
    expectFailure([&] { unserializeChild("Flag", "1.5", true); }, kIncorrectType);
    expectFailure([&] { unserializeChild("Text", "1.5", true); }, kIncorrectType);
}

TEST_F(ValueJsonTest, Struct_MissingAndUnknownMembersFailStrictlyAndAreSkippedTolerantly) {
    expectFailure([&] { unserializeChild("Point", R"({"X": 5})", false); }, "Missing child \"Y\" in struct");
    EXPECT_EQ(m_data->point.x, 5);  // writes already made stay
    expectFailure([&] { unserializeChild("Point", R"({"X": 1, "Y": 1, "Z": 1})", false); },
                  "Unknown child \"Z\" in struct");
    EXPECT_EQ(unserializeChild("Point", R"({"Y": 9, "Z": 1})", true), "Missing child \"X\" in struct\n");
    EXPECT_EQ(m_data->point, (Point{1, 9}));
    expectFailure([&] { unserializeChild("Point", "[]", true); }, kIncorrectType);
}

TEST_F(ValueJsonTest, ReadOnly_FailsStrictlyAndIsSkippedTolerantly) {
    expectFailure([&] { unserializeChild("Locked", "1", false); }, "cannot unserialize read only variable");
    Json::Value root = SerializeValueToJson(m_root().get(), fixtureType(), {});
    root["Locked"] = 1;
    root["Int32"] = 8;
    EXPECT_EQ(UnserializeValueFromJson(root, m_root().get(), fixtureType(), true, false), "");
    EXPECT_EQ(m_data->locked, 42);
    EXPECT_EQ(m_data->int32, 8);
}

TEST_F(ValueJsonTest, Containers_ResizeReplaceAndRefuseOtherKinds) {
    EXPECT_EQ(unserializeChild("Points", R"([{"X": 1, "Y": 1}])", false), "");
    EXPECT_EQ(m_data->points, (std::vector<Point>{{1, 1}}));
    expectFailure([&] { unserializeChild("Fixed", "[1, 2]", false); }, "resize is not allowed");
    EXPECT_EQ(unserializeChild("Fixed", "[1, 2, 3]", false), "");
    EXPECT_EQ(m_data->fixed[2], 3);
    EXPECT_EQ(unserializeChild("ByName", R"({"z": "zed"})", false), "");
    EXPECT_EQ(m_data->byName, (std::map<std::string, std::string>{{"z", "zed"}}));
    EXPECT_EQ(unserializeChild("ById", R"({"-2": {"X": 0, "Y": 1}})", false), "");
    EXPECT_EQ(m_data->byId, (std::map<std::int32_t, Point>{{-2, {0, 1}}}));
    expectFailure([&] { unserializeChild("ById", R"({"1x": {"X": 0, "Y": 1}})", false); },
                  "cannot parse: 1x");
    expectFailure([&] { unserializeChild("Points", "{}", true); }, kIncorrectType);
    expectFailure([&] { unserializeChild("ByName", "[]", true); }, kIncorrectType);
    expectFailure([&] { unserializeChild("Channels", "[]", true); }, kIncorrectType);
}

TEST_F(ValueJsonTest, Unions_WriteTheChosenAlternativeOrEveryOneWhenFull) {
    EXPECT_EQ(unserializeChild("Choice", R"({"_type_": "Label", "_value_": {"Label": "hi"}})", false), "");
    EXPECT_EQ(std::get<std::string>(m_data->choice), "hi");
    EXPECT_EQ(serializeChild("Choice"), parseJson(R"({"_type_": "Label", "_value_": {"Label": "hi"}})"));

    EXPECT_EQ(
        unserializeChild("Selector",
                         R"({"_type_": "Point", "_value_": {"Point": {"X": 1, "Y": 2}, "Count": 3}})", false),
        "");
    EXPECT_EQ(m_data->selector.current, "Point");
    EXPECT_EQ(m_data->selector.point, (Point{1, 2}));
    EXPECT_EQ(m_data->selector.count, 3);

    expectFailure([&] { unserializeChild("Selector", R"({"_type_": "Count"})", false); },
                  "Union description must contain field '_value_'");
    // Tolerant: every alternative of a full union is still read, a missing one as null, so each leaf
    // logs its own complaint.
    EXPECT_EQ(unserializeChild("Selector", R"({"_type_": "Count", "_value_": {"Count": 4}})", true),
              "Missing child \"X\" in struct\nMissing child \"Y\" in struct\n");
    EXPECT_EQ(m_data->selector.count, 4);
    EXPECT_EQ(m_data->selector.point, (Point{1, 2}));
    // A missing int64 alternative is a null that the int64 leaf refuses even tolerantly; what came
    // before it stays written.
    expectFailure(
        [&] {
            unserializeChild("Selector", R"({"_type_": "Point", "_value_": {"Point": {"X": 5, "Y": 6}}})",
                             true);
        },
        kIncorrectType);
    EXPECT_EQ(m_data->selector.current, "Point");
    EXPECT_EQ(m_data->selector.point, (Point{5, 6}));
    EXPECT_EQ(
        unserializeChild(
            "Selector", R"({"_type_": "Count", "_value_": {"Point": {"X": 1.5, "Y": 2}, "Count": 3}})", true),
        "Not an int32 variable\n");
    EXPECT_EQ(m_data->selector.point, (Point{5, 2}));
    expectFailure([&] { unserializeChild("Selector", R"({"_value_": {"Count": 4}})", true); },
                  "Invalid union type");
    expectFailure([&] { unserializeChild("Choice", "3", true); }, kIncorrectType);
}

TEST_F(ValueJsonTest, FileAndData_TravelAsBase64) {
    EXPECT_EQ(unserializeChild("File", R"({"MimeType": "image/png", "Data": "AAEC"})", false), "");
    EXPECT_EQ(m_data->file, (FileContent{"image/png", {0, 1, 2}}));
    expectFailure([&] { unserializeChild("File", R"({"MimeType": "image/png"})", true); }, kIncorrectType);
    expectFailure([&] { unserializeChild("File", "\"AAEC\"", true); }, kIncorrectType);

    EXPECT_EQ(unserializeChild("Blob", "\" A=Q\\r\\nI D=\"", false), "");
    EXPECT_EQ(m_data->blob, (std::vector<std::uint8_t>{1, 2, 3}));

    // Larger than the first read chunk, so the serialiser reads several growing chunks.
    m_data->blob.resize(70000);
    for (std::size_t index = 0; index < m_data->blob.size(); ++index) {
        m_data->blob[index] = static_cast<std::uint8_t>(index * 7);
    }
    const std::vector<std::uint8_t> original = m_data->blob;
    const Json::Value encoded = serializeChild("Blob");
    m_data->blob.clear();
    EXPECT_EQ(UnserializeValueFromJson(encoded, child("Blob").get(), fixtureChildType("Blob"), false, false),
              "");
    EXPECT_EQ(m_data->blob, original);
}

TEST(Base64Test, Encode_PadsWithEqualsAndBreaksLinesOnlyWhenAsked) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", ""},        {"f", "Zg=="},        {"fo", "Zm8="},
        {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, encoded] : cases) {
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(plain.data());
        EXPECT_EQ(base64Encode(bytes, plain.size()), encoded);
        const std::vector<std::uint8_t> decoded = base64Decode(encoded);
        EXPECT_EQ(std::string(decoded.begin(), decoded.end()), plain);
    }
    const std::vector<std::uint8_t> all = [] {
        std::vector<std::uint8_t> bytes(256);
        for (std::size_t index = 0; index < bytes.size(); ++index) {
            bytes[index] = static_cast<std::uint8_t>(index);
        }
        return bytes;
    }();
    const std::string plain = base64Encode(all.data(), all.size());
    EXPECT_EQ(plain.find('\n'), std::string::npos);
    EXPECT_EQ(plain.substr(plain.size() - 8), "/P3+/w==");
    const std::string wrapped = base64Encode(all.data(), all.size(), "\r\n");
    EXPECT_EQ(wrapped.find("\r\n"), 64u);
    EXPECT_EQ(base64Decode(wrapped), all);
}

TEST(Base64Test, Decode_SkipsEveryCharacterOutsideTheAlphabet) {
    const std::string expected = "foobar";
    for (const std::string text : {"Zm9vYmFy", "Zm9v\r\nYmFy", " Zm=9v\tYm=Fy==", "Z*m9~vY{mF}y\x01"}) {
        const std::vector<std::uint8_t> decoded = base64Decode(text);
        EXPECT_EQ(std::string(decoded.begin(), decoded.end()), expected) << text;
    }
}

TEST_F(ValueJsonTest, SizeAndElementIds_AnswerOnlyTheirContainers) {
    EXPECT_EQ(SerializeSizeToJson(child("Points").get()), 2);
    EXPECT_EQ(SerializeElementIdsToJson(child("ById").get()), parseJson("[4]"));
    EXPECT_EQ(SerializeElementIdsToJson(child("Channels").get()), parseJson("[0]"));
    expectFailure([&] { SerializeElementIdsToJson(child("ByName").get()); }, "Operation not supported");
    expectFailure([&] { SerializeSizeToJson(child("ById").get()); }, "Operation not supported");
    expectFailure([&] { SerializeSizeToJson(child("Locked").get()); }, "Operation not supported");

    auto levels = std::make_shared<std::vector<std::int32_t>>(std::vector<std::int32_t>{1, 2, 3});
    const auto wrapped = declareReadOnly(declareVector<std::vector<std::int32_t>>(declare<std::int32_t>()));
    EXPECT_EQ(SerializeSizeToJson(wrapped.view(levels).get()), 3);
}

class ConstructableMapJsonTest : public ValueJsonTest {
  protected:
    static std::string element(const std::string& name, const std::string& state) {
        return R"({"_configuration_": {"Name": ")" + name + R"(", "Colour": "Blue"}, "_state_": )" + state +
               "}";
    }
};

TEST_F(ConstructableMapJsonTest, Elements_TakeTheirIdsAndJoinLogsInKeyOrder) {
    for (bool parallel : {false, true}) {
        const std::string json = "{\"10\": " + element("ten", R"({"Level": 1.5, "Muted": true})") +
                                 ", \"2\": " + element("two", R"({"Muted": true})") +
                                 ", \"3\": " + element("three", R"({"Level": 3})") + "}";
        EXPECT_EQ(
            unserializeChild("Channels", json, true, parallel),
            "Missing child \"Level\" in struct\nMissing child \"Muted\" in struct\nNot an int32 variable\n");
        EXPECT_EQ(m_data->channels.ids(), (std::vector<std::int32_t>{2, 3, 10}));
        EXPECT_EQ(m_data->channels.get(2).first, (Settings{"two", Colour::Blue}));
        // Each element starts from the state its constructor gives, and the JSON overwrites it.
        EXPECT_EQ(m_data->channels.get(2).second, (Channel{2, true}));
        EXPECT_EQ(m_data->channels.get(3).second, (Channel{3, false}));
        EXPECT_EQ(m_data->channels.get(10).second, (Channel{10, true}));
    }
}

TEST_F(ConstructableMapJsonTest, OneFailingElement_FailsAfterEveryOtherElementWasWritten) {
    for (bool parallel : {false, true}) {
        std::string json = "{";
        for (int id = 1; id <= 20; ++id) {
            const std::string state =
                id == 7 ? R"({"Level": "high", "Muted": true})" : R"({"Level": 5, "Muted": true})";
            json += (id > 1 ? ", \"" : "\"") + std::to_string(id) +
                    "\": " + element("c" + std::to_string(id), state);
        }
        json += "}";
        expectFailure([&] { unserializeChild("Channels", json, false, parallel); }, kIncorrectType);
        EXPECT_EQ(m_data->channels.ids().size(), 20u) << "parallel " << parallel;
        EXPECT_EQ(m_data->channels.get(20).second, (Channel{5, true}));
        EXPECT_EQ(m_data->channels.get(7).second, (Channel{7, false}));
    }
    expectFailure([&] { unserializeChild("Channels", R"({"x": {}})", true); }, "cannot parse: x");
}

TEST_F(ConstructableMapJsonTest, MapThatDoesNotKnowItsStateShape_ClearsThroughATemporaryElement) {
    auto inner = convertTo<IConstructableObjectMap>(child("Channels"));
    std::atomic<int> removals = 0;
    CConstructableObjectMap wrapper(
        [&] { return inner->ids(); }, [&](std::int32_t id) { return inner->get(id); },
        [&] { return inner->newConfiguration(); },
        [&](std::int32_t id, IAbstractObject& configuration) { inner->add(id, configuration); },
        [&](IAbstractObject& configuration) { return inner->add(configuration); },
        [&](std::int32_t id) {
            ++removals;
            inner->remove(id);
        },
        inner->getTypeFunction(), false);
    const std::string json = "{\"5\": " + element("five", R"({"Level": 50, "Muted": false})") + "}";
    EXPECT_EQ(UnserializeValueFromJson(parseJson(json), &wrapper, fixtureChildType("Channels"), false, true),
              "");
    EXPECT_EQ(m_data->channels.ids(), (std::vector<std::int32_t>{5}));
    EXPECT_EQ(m_data->channels.get(5).second, (Channel{50, false}));
    EXPECT_EQ(removals.load(), 2);  // the old element 0 and the temporary one
}

}  // namespace
