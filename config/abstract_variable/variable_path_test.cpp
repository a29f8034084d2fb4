#include "config/abstract_variable/variable_path.h"

#include <gtest/gtest.h>

#include <optional>

#include "config/abstract_variable/testing/fixture_helpers.h"
#include "config/abstract_variable/visitors.h"
#include "testing/expect_failure.h"

namespace {

using namespace ovtx::config::abstract_variable::lib_abstract_variable::v2;
using namespace ovtx::config::abstract_variable::testing::v1;
using ovtx::test_support::v1::expectFailure;

using Segments = std::vector<std::string>;

AbstractType findType(const Segments& segments, bool keepReadOnly = true) {
    return FindTypeAtPath(fixtureType(), std::deque<std::string>(segments.begin(), segments.end()),
                          keepReadOnly);
}

std::string joined(const Segments& segments) {
    std::string text;
    for (const auto& segment : segments) {
        text += (text.empty() ? "" : "/") + segment;
    }
    return text;
}

struct TypePathCase {
    Segments segments;
    AbstractType expected;
};

TEST(FindTypeAtPathTest, WellFormedPaths_GiveTheTypeAtTheirEnd) {
    const AbstractType& settings =
        *fixtureChildType("Channels").get<ConstructableObjectMapType>().configuration;
    const AbstractType& channel = *fixtureChildType("Channels").get<ConstructableObjectMapType>().state;
    const AbstractType int32 = VariableType<std::int32_t>{};
    const std::vector<TypePathCase> cases = {
        {{}, fixtureType()},
        {{"."}, fixtureType()},
        {{"Int32", "."}, int32},
        {{".", "Point", ".", "X"}, int32},
        {{"Points", "Idx", "X"}, int32},
        {{"Points", "0", "Y"}, int32},
        {{"Points", "17"}, fixtureChildType("Point")},
        {{"ById", "Idx", "Y"}, int32},
        {{"ByName", "Idx"}, VariableType<std::string>{}},
        {{"ByName", "12"}, VariableType<std::string>{}},
        {{"Channels", "Idx"}, StructType{{{"_configuration_", settings}, {"_state_", channel}}}},
        {{"Channels", "3", "_configuration_"}, ReadOnlyType{settings}},
        {{"Channels", "Idx", "_configuration_", "Name"}, VariableType<std::string>{}},
        {{"Channels", "Idx", "_state_", "Level"}, int32},
        {{"Sum", "Param", "X"}, int32},
        {{"Sum", "Return"}, int32},
        {{"Choice", "_type_"}, EnumType{{"Point", "Label"}}},
        {{"Choice", "_value_", "Label"}, VariableType<std::string>{}},
        {{"Selector", "_value_", "Point", "Y"}, int32},
        {{"Locked"}, ReadOnlyType{int32}},
        {{"Locked", "."}, ReadOnlyType{int32}},
    };
    for (const auto& [segments, expected] : cases) {
        EXPECT_EQ(findType(segments), expected) << joined(segments);
    }
    EXPECT_EQ(findType({"Locked"}, false), int32);
    EXPECT_EQ(findType({"Channels", "Idx", "_configuration_"}, false), settings);
}

struct TypePathFailure {
    Segments segments;
    std::string text;
};

TEST(FindTypeAtPathTest, IllFormedPaths_SayWhatIsAllowed) {
    const std::vector<TypePathFailure> cases = {
        {{"Int32", "x"}, ""},
        {{"Colour", "Red"}, ""},
        {{"File", "Data"}, ""},
        {{"Locked", "x"}, ""},
        {{"Nope"}, "Nope is not a valid value in this Struct"},
        {{"Points", "x"}, "The only allowed path after a container element is 'Idx' or an integer value"},
        {{"Points", "-1"}, "The only allowed path after a container element is 'Idx' or an integer value"},
        {{"ByName", "a"}, "The only allowed path after a container element is 'Idx' or an integer value"},
        {{"Channels", "x"}, "The only allowed path after a container element is Idx"},
        {{"Channels", "Idx", "x"},
         "The only allowed path after a constructable object map element are 'Idx/_configuration_' or "
         "'Idx/_state_'"},
        {{"Sum", "x"}, "x is not a valid value in a Function, next element must be Param or Return"},
        {{"Choice", "x"}, "Only '_type_' and '_value_' are allowed at the beginning of an Union"},
        {{"Choice", "_value_", "Nope"}, "Nope is not a valid value in this Union"},
    };
    for (const auto& [segments, text] : cases) {
        SCOPED_TRACE(joined(segments));
        expectFailure([&] { findType(segments); }, text);
    }
}

class VariablePathTest : public ::testing::Test {
  protected:
    ObjectFactory find(const Segments& segments) { return FindObjectAtPath(m_root, segments); }
    template <typename T>
    T value(const Segments& segments) {
        return convertTo<IVariable<T>>(find(segments))->get();
    }

    std::shared_ptr<FixtureData> m_data = std::make_shared<FixtureData>(makeFixtureData());
    ObjectFactory m_root = fixtureTree(m_data);
};

TEST_F(VariablePathTest, Paths_ReachTheData) {
    EXPECT_EQ(value<std::int32_t>({"Int32"}), 7);
    EXPECT_EQ(value<std::int32_t>({"Points", "1", "X"}), 3);
    EXPECT_EQ(value<std::int32_t>({"Points", "2", "Y"}), 6);
    EXPECT_EQ(value<std::int32_t>({"ById", "4", "X"}), 7);
    EXPECT_EQ(value<std::string>({"ByName", "b"}), "beta");
    EXPECT_EQ(value<std::int32_t>({"Channels", "0", "_state_", "Level"}), 0);
    EXPECT_EQ(value<std::string>({"Channels", "0", "_configuration_", "Name"}), "main");
    EXPECT_EQ(value<std::int32_t>({"Choice", "_value_", "Point", "X"}), 9);
    EXPECT_EQ(value<std::int64_t>({"Selector", "_value_", "Count"}), 13);
    EXPECT_EQ(getTypeString(find({})().get()), "struct");
}

TEST_F(VariablePathTest, VectorIndices_CountFromOne) {
    expectFailure([&] { find({"Points", "0"})(); }, "invalid vector<T> subscript");
    expectFailure([&] { find({"Points", "3"})(); }, "invalid vector<T> subscript");
    expectFailure([&] { find({"Points", "1x"}); }, "Invalid vector index: 1x");
    expectFailure([&] { find({"Points", "Idx"}); }, "Invalid vector index: Idx");
    expectFailure([&] { find({"Points", "-2147483648"}); }, "Invalid vector index: -2147483648");
    expectFailure([&] { find({"Points", "2147483648"}); }, "Invalid vector index: 2147483648");
    expectFailure([&] { find({"Points", "-2147483647"})(); }, "invalid vector<T> subscript");
    expectFailure([&] { find({"ById", "4x"}); }, "Invalid map index: 4x");
    expectFailure([&] { find({"ByName", "zz"})(); }, "such id does not exist");
    expectFailure([&] { find({"Point", "."}); }, "No such variable: .");

    m_data->points.clear();
    EXPECT_EQ(findType({"Points", "Idx", "X"}), AbstractType(VariableType<std::int32_t>{}));
    expectFailure([&] { find({"Points", "Idx", "X"}); }, "Invalid vector index: Idx");
}

TEST_F(VariablePathTest, ConstructableMap_NeedsAPartAfterTheId) {
    expectFailure(
        [&] {
            find({"Channels", "0"});
        },
        "Invalid resource: Channels/0. Only _configuration_ and _state_ are valid resources.");
    expectFailure(
        [&] {
            find({"Channels", "0", "state"});
        },
        "Invalid resource: Channels/0/state. Only _configuration_ and _state_ are valid resources.");
    expectFailure([&] { find({"Channels", "x", "_state_"}); }, "Invalid map index: x");
    expectFailure([&] { find({"Channels", "9", "_state_"}); }, "such id does not exist");
    EXPECT_EQ(getTypeString(find({"Channels", "0", "_configuration_"})().get()), "read_only");
    EXPECT_NO_THROW(findType({"Channels", "0"}));
}

TEST_F(VariablePathTest, Union_TypeIsAnEnumAndValueOnlyTheCurrentAlternative) {
    auto choice = convertTo<IEnum>(find({"Choice", "_type_"}));
    EXPECT_EQ(choice->get(), "Point");
    EXPECT_EQ(*choice->getTypeFunction()(), findType({"Choice", "_type_"}).get<EnumType>());
    choice->set("Label");
    EXPECT_TRUE(std::holds_alternative<std::string>(m_data->choice));

    expectFailure([&] { find({"Choice", "_value_"}); }, "Non accessible, incomplete URL : Choice/_value_");
    expectFailure(
        [&] {
            find({"Choice", "_value_", "Point", "X"});
        },
        "Invalid type value in URL : Choice/_value_/Point/X. Current type is Label");
    EXPECT_NO_THROW(findType({"Choice", "_value_", "Point", "X"}));
    expectFailure([&] { find({"Choice", "value"}); }, "Invalid resource: Choice/value");
}

TEST_F(VariablePathTest, ReadOnly_StaysAtTheEndAndPassesASegmentThrough) {
    EXPECT_EQ(getTypeString(find({"Locked"})().get()), "read_only");
    expectFailure([&] { find({"Locked", "x"}); }, "Invalid resource: Locked/x");
    EXPECT_EQ(getTypeString(find({"Channels", "0", "_configuration_"})().get()), "read_only");
    EXPECT_EQ(value<std::string>({"Channels", "0", "_configuration_", "Name"}), "main");
}

TEST_F(VariablePathTest, TypeOnlySegments_FailInObjectPaths) {
    for (const Segments& segments : std::vector<Segments>{{"Sum", "Param"},
                                                          {"Int32", "."},
                                                          {"Text", "x"},
                                                          {"Colour", "Red"},
                                                          {"File", "Data"},
                                                          {"Blob", "x"},
                                                          {"Flag", "x"},
                                                          {"Int64", "x"}}) {
        expectFailure([&] { find(segments); }, "Invalid resource: " + joined(segments));
    }
}

}  // namespace
