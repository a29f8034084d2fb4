#include "config/abstract_variable/abstract_type_json.h"

#include <gtest/gtest.h>

#include <set>

#include "config/abstract_variable/testing/fixture_helpers.h"
#include "testing/expect_failure.h"

namespace {

using namespace ovtx::config::abstract_variable::abstract_type::v1;
using ovtx::config::abstract_variable::testing::v1::fixtureType;
using ovtx::test_support::v1::expectFailure;
const auto parse = ovtx::config::abstract_variable::testing::v1::parseJson;

// One description of every variety, in tag order, each nesting others.
std::vector<AbstractType> oneOfEach() {
    return {
        VariableType<std::int32_t>{},
        VariableType<std::int64_t>{},
        VariableType<bool>{},
        VariableType<std::string>{},
        StructType{{{"B", VariableType<bool>{}}, {"A", VectorType{VariableType<std::int64_t>{}}}}},
        VectorType{StructType{}},
        MapType<std::int32_t>{EnumType{{"x"}}},
        MapType<std::string>{FileType{}},
        ConstructableObjectMapType{VariableType<std::string>{}, DataType{}},
        FunctionType{StructType{}, MapType<std::string>{VariableType<bool>{}}},
        FileType{},
        DataType{},
        ReadOnlyType{ReadOnlyType{VariableType<std::int32_t>{}}},
        EnumType{{"Zulu", "Alpha", "Mike"}},
        UnionType{{{"Second", VariableType<std::string>{}}, {"First", StructType{}}}, true},
    };
}

TEST(AbstractTypeJsonTest, EveryVariety_RoundTripsAndNamesItsVariety) {
    const std::vector<AbstractType> types = oneOfEach();
    for (std::size_t tag = 0; tag < types.size(); ++tag) {
        ASSERT_EQ(types[tag].tag(), tag);
        const Json::Value json = SerializeTypeToJson(types[tag]);
        EXPECT_EQ(json["variety"].asString(), varietyName(tag));
        EXPECT_EQ(UnserializeTypeFromJson(json), types[tag]) << json.toStyledString();
    }
    EXPECT_EQ(types.size(), 15u);
}

TEST(AbstractTypeJsonTest, FixtureTree_RoundTrips) {
    EXPECT_EQ(UnserializeTypeFromJson(SerializeTypeToJson(fixtureType())), fixtureType());
}

TEST(AbstractTypeJsonTest, Members_HaveTheirWireNames) {
    const std::vector<std::pair<AbstractType, std::string>> cases = {
        {StructType{{{"A", VariableType<bool>{}}}},
         R"({"variety":"struct","children":[{"name":"A","type":{"variety":"bool"}}]})"},
        {VectorType{VariableType<std::int32_t>{}}, R"({"variety":"vector","element":{"variety":"int32"}})"},
        {MapType<std::string>{DataType{}}, R"({"variety":"map_str","element":{"variety":"data"}})"},
        {ConstructableObjectMapType{FileType{}, VariableType<std::int64_t>{}},
         R"({"variety":"constructable_object_map","element_configuration":{"variety":"file"},
             "element_state":{"variety":"int64"}})"},
        {FunctionType{VariableType<std::string>{}, StructType{}},
         R"({"variety":"function","parameter_type":{"variety":"string"},
             "return_type":{"variety":"struct","children":[]}})"},
        {ReadOnlyType{MapType<std::int32_t>{VariableType<bool>{}}},
         R"({"variety":"read_only","underlying_type":{"variety":"map","element":{"variety":"bool"}}})"},
        {EnumType{{"B", "A"}}, R"({"variety":"enum","choices":[{"value":"B"},{"value":"A"}]})"},
        {UnionType{{{"Y", VariableType<bool>{}}, {"X", FileType{}}}, false},
         R"({"variety":"union","available_types":["Y","X"],
             "value_types":[{"name":"Y","type":{"variety":"bool"}},{"name":"X","type":{"variety":"file"}}],
             "full":false})"},
    };
    for (const auto& [type, text] : cases) {
        EXPECT_EQ(SerializeTypeToJson(type), parse(text)) << text;
    }
}

TEST(AbstractTypeJsonTest, AbsentListsAndAvailableTypes_ReadAsEmptyOrIgnored) {
    EXPECT_EQ(UnserializeTypeFromJson(parse(R"({"variety":"struct"})")), AbstractType(StructType{}));
    EXPECT_EQ(UnserializeTypeFromJson(parse(R"({"variety":"enum"})")), AbstractType(EnumType{}));
    EXPECT_EQ(UnserializeTypeFromJson(parse(R"({"variety":"union","value_types":[
                  {"name":"A","type":{"variety":"int32"}}],"full":true})")),
              AbstractType(UnionType{{{"A", VariableType<std::int32_t>{}}}, true}));
    EXPECT_EQ(UnserializeTypeFromJson(parse(R"({"variety":"union","available_types":["Nope"]})")),
              AbstractType(UnionType{}));
}

TEST(AbstractTypeJsonTest, UnknownOrAbsentVariety_FailsWithItsName) {
    expectFailure([] { UnserializeTypeFromJson(parse(R"({"element":{"variety":"int32"}})")); },
                  "Could not unserialize json :  is an unknown variety");
    expectFailure([] { UnserializeTypeFromJson(Json::Value()); },
                  "Could not unserialize json :  is an unknown variety");
    expectFailure([] { UnserializeTypeFromJson(parse(R"({"variety":"Struct"})")); },
                  "Could not unserialize json : Struct is an unknown variety");
    expectFailure(
        [] {
            UnserializeTypeFromJson(
                parse(R"({"variety":"struct","children":[{"name":"a","type":{"variety":"float"}}]})"));
        },
        "Could not unserialize json : float is an unknown variety");
    expectFailure([] { UnserializeTypeFromJson(parse(R"({"variety":"vector"})")); },
                  "Could not unserialize json :  is an unknown variety");
}

TEST(AbstractTypeJsonTest, MemberOfWrongKind_FailsInJsoncpp) {
    for (const char* text :
         {R"({"variety":"enum","choices":[{"value":[1]}]})", R"({"variety":"union","full":"yes"})",
          R"(["int32"])", R"("int32")", R"({"variety":"vector","element":7})",
          R"({"variety":"struct","children":{"a":{"name":"a","type":{"variety":"int32"}}}})",
          R"({"variety":"union","value_types":{"a":{"name":"a","type":{"variety":"int32"}}}})",
          R"({"variety":"enum","choices":{"a":{"value":"a"}}})"}) {
        EXPECT_THROW(UnserializeTypeFromJson(parse(text)), Json::Exception) << text;
    }
}

TEST(AbstractTypeTest, WrongAlternativeAndTag_Fail) {
    const AbstractType type = VectorType{VariableType<bool>{}};
    expectFailure([&] { type.get<StructType>(); }, "cannot convert union to given type");
    expectFailure([] { varietyName(15); }, "internal assertion failure");
    EXPECT_EQ(tagOf<UnionType>, 14u);
    EXPECT_EQ(tagOf<VariableType<std::int32_t>>, 0u);
}

TEST(AbstractTypeTest, Copy_IsDeepAndIndependent) {
    AbstractType original = StructType{{{"A", VectorType{VariableType<bool>{}}}}};
    AbstractType copy = original;
    copy.get<StructType>().children[0].type = EnumType{{"x"}};
    EXPECT_TRUE(original.get<StructType>().children[0].type->is<VectorType>());
    EXPECT_NE(copy, original);
}

}  // namespace
