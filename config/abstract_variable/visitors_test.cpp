#include "config/abstract_variable/visitors.h"

#include <gtest/gtest.h>

#include "config/abstract_variable/declaration.h"
#include "config/abstract_variable/testing/fixture_tree.h"
#include "testing/expect_failure.h"

namespace {

using namespace ovtx::config::abstract_variable::lib_abstract_variable::v2;
using namespace ovtx::config::abstract_variable::testing::v1;
using ovtx::test_support::v1::expectFailure;

class VisitorsTest : public ::testing::Test {
  protected:
    ObjectFactory child(const std::string& name) { return convertTo<IStruct>(m_root)->getChild(name); }

    std::shared_ptr<FixtureData> m_data = std::make_shared<FixtureData>(makeFixtureData());
    ObjectFactory m_root = fixtureTree(m_data);
};

TEST_F(VisitorsTest, GetTypeString_NamesEveryVarietyOfTheFixture) {
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"Int32", "int32"},
        {"Int64", "int64"},
        {"Flag", "bool"},
        {"Text", "string"},
        {"Colour", "enum"},
        {"Point", "struct"},
        {"Points", "vector"},
        {"Fixed", "vector"},
        {"ById", "map"},
        {"ByName", "map_str"},
        {"Channels", "constructable_object_map"},
        {"Sum", "function"},
        {"File", "file"},
        {"Blob", "data"},
        {"Locked", "read_only"},
        {"Choice", "union"},
        {"Selector", "union"}};
    const auto& children = fixtureType().get<StructType>().children;
    ASSERT_EQ(children.size(), expected.size());
    for (std::size_t index = 0; index < expected.size(); ++index) {
        const auto& [name, variety] = expected[index];
        EXPECT_EQ(children[index].name, name);
        EXPECT_EQ(getTypeString(child(name)().get()), variety) << name;
        EXPECT_EQ(varietyName(*children[index].type), variety) << name;
    }
}

TEST_F(VisitorsTest, GetObjectType_OfRootIsTheDeclaredRecord) {
    EXPECT_EQ(getObjectType(*m_root()), fixtureType());
}

TEST_F(VisitorsTest, Converter_LooksThroughReadOnlyOnlyWithTheFlag) {
    auto colour = std::make_shared<Colour>(Colour::Blue);
    ObjectFactory wrapped = declareReadOnly(colourDeclaration()).factory(colour);

    auto through = convertTo<IEnum>(wrapped, true);
    EXPECT_EQ(through->get(), "Blue");  // the inner view is still alive here
    through->set("Red");
    EXPECT_EQ(*colour, Colour::Red);

    expectFailure([&] { convertTo<IEnum>(wrapped, false); }, "Cannot convert read only variable");
    EXPECT_NE(convertTo<IReadOnly>(wrapped, false).get(), nullptr);
    EXPECT_NE(convertTo<IReadOnly>(wrapped, true).get(), nullptr);
    expectFailure([&] { convertTo<IStruct>(wrapped, true); }, "Cannot convert variable");
}

TEST_F(VisitorsTest, Converter_KeepsLookedThroughViewAliveWithTheConverter) {
    auto locked = std::make_shared<std::int32_t>(5);
    auto readOnly = declareReadOnly(declareReadOnly(declare<std::int32_t>())).factory(locked)();
    Converter<IVariable<std::int32_t>> converter(true);
    readOnly->accept(converter);
    ASSERT_NE(converter.get(), nullptr);
    EXPECT_EQ(converter.get()->get(), 5);
}

TEST_F(VisitorsTest, TypeSpecificCommand_RejectsKindsItDoesNotHandle) {
    struct CountInts : TypeSpecificCommand {
        using TypeSpecificCommand::visit;
        void visit(IVariable<std::int32_t>&) override { ++count; }
        int count = 0;
    } command;
    child("Int32")()->accept(command);
    EXPECT_EQ(command.count, 1);
    expectFailure([&] { child("Int64")()->accept(command); }, "Operation not supported");
    expectFailure([&] { child("Locked")()->accept(command); }, "Operation not supported");
}

TEST_F(VisitorsTest, CopyWholeTree_CopiesEveryValueButReadOnlyAndFunction) {
    auto target = std::make_shared<FixtureData>();
    target->locked = -1;
    target->channels.add(Settings{"stale", Colour::Blue});
    copyValue(*m_root(), *fixtureTree(target)(), fixtureType());

    EXPECT_EQ(target->int32, 7);
    EXPECT_EQ(target->int64, m_data->int64);
    EXPECT_TRUE(target->flag);
    EXPECT_EQ(target->text, "hello");
    EXPECT_EQ(target->colour, Colour::Green);
    EXPECT_EQ(target->point, m_data->point);
    EXPECT_EQ(target->points, m_data->points);
    EXPECT_EQ(target->fixed, m_data->fixed);
    EXPECT_EQ(target->byId, m_data->byId);
    EXPECT_EQ(target->byName, m_data->byName);
    EXPECT_EQ(target->file, m_data->file);
    EXPECT_EQ(target->blob, m_data->blob);
    EXPECT_EQ(target->locked, -1);
    EXPECT_EQ(target->choice, m_data->choice);
    EXPECT_EQ(target->selector.current, "Count");
    EXPECT_EQ(target->selector.count, 13);
    EXPECT_EQ(target->selector.point, m_data->selector.point);
    EXPECT_EQ(target->channels.ids(), (std::vector<std::int32_t>{0}));
    EXPECT_EQ(target->channels.get(0).first, m_data->channels.get(0).first);
}

TEST_F(VisitorsTest, CopyNonFullUnion_CopiesOnlyTheCurrentAlternative) {
    auto source = std::make_shared<std::variant<Point, std::string>>(std::string("label"));
    auto target = std::make_shared<std::variant<Point, std::string>>(Point{1, 1});
    auto declaration = declareVariant<std::variant<Point, std::string>>(
        {"Point", "Label"}, pointDeclaration(), declare<std::string>());
    copyValue(*declaration.factory(source)(), *declaration.factory(target)(), declaration.type());
    EXPECT_EQ(*target, *source);
}

TEST_F(VisitorsTest, CopyVectorOfThreeIntoFive_LeavesTargetAtThree) {
    auto declaration = declareVector<std::vector<std::int32_t>>(declare<std::int32_t>());
    auto source = std::make_shared<std::vector<std::int32_t>>(std::vector<std::int32_t>{1, 2, 3});
    auto target = std::make_shared<std::vector<std::int32_t>>(5, 9);
    copyValue(*declaration.factory(source)(), *declaration.factory(target)(), declaration.type());
    EXPECT_EQ(*target, *source);
}

TEST_F(VisitorsTest, CopyEmptyData_ReadsOnceAndWritesNothing) {
    struct Counts {
        int reads = 0;
        int writes = 0;
    };
    auto counts = std::make_shared<Counts>();
    struct EmptyReader : IStreamReceiver {
        explicit EmptyReader(std::shared_ptr<Counts> counts) : counts(std::move(counts)) {}
        std::size_t receive(std::uint8_t*, std::size_t) override { return ++counts->reads, 0; }
        std::shared_ptr<Counts> counts;
    };
    struct CountingWriter : IStreamSender {
        explicit CountingWriter(std::shared_ptr<Counts> counts) : counts(std::move(counts)) {}
        std::size_t send(const std::uint8_t*, std::size_t size) override { return ++counts->writes, size; }
        std::shared_ptr<Counts> counts;
    };
    auto type = constantType(DataType{});
    auto source = newData([counts] { return std::make_unique<CountingWriter>(counts); },
                          [counts] { return std::make_unique<EmptyReader>(counts); }, type);
    auto target = newData([counts] { return std::make_unique<CountingWriter>(counts); },
                          [counts] { return std::make_unique<EmptyReader>(counts); }, type);
    copyValue(*source, *target, DataType{});
    EXPECT_EQ(counts->reads, 1);
    EXPECT_EQ(counts->writes, 0);
}

TEST_F(VisitorsTest, CopyData_LoopsUntilWriterTookEverything) {
    struct SlowWriter : IStreamSender {
        explicit SlowWriter(std::vector<std::uint8_t>& out) : out(out) {}
        std::size_t send(const std::uint8_t* bytes, std::size_t) override { return out.push_back(*bytes), 1; }
        std::vector<std::uint8_t>& out;
    };
    std::vector<std::uint8_t> out;
    auto target = newData([&out] { return std::make_unique<SlowWriter>(out); }, [] { return nullptr; },
                          constantType(DataType{}));
    copyValue(*child("Blob")(), *target, DataType{});
    EXPECT_EQ(out, m_data->blob);
}

TEST_F(VisitorsTest, CopyWithMismatchedType_Fails) {
    auto text = std::make_shared<std::string>();
    auto target = declare<std::string>().factory(text)();
    expectFailure([&] { copyValue(*child("Int32")(), *target, VariableType<std::string>{}); },
                  "Cannot copy object : given type does not match the source object");
    expectFailure([&] { copyValue(*child("Locked")(), *target, VariableType<std::int32_t>{}); },
                  "Cannot copy object : given type does not match the source object");
    copyValue(*child("Sum")(), *target, VariableType<std::string>{});  // functions are never checked
    expectFailure([&] { convertTo<IStruct>(m_root)->getTypeFunction()()->children[0].type->get<EnumType>(); },
                  "cannot convert union to given type");
}

TEST_F(VisitorsTest, CopyEnumOutsideTheGivenChoices_Fails) {
    auto target = std::make_shared<Colour>(Colour::Red);
    expectFailure(
        [&] {
            copyValue(*child("Colour")(), *colourDeclaration().factory(target)(), EnumType{{"Red", "Blue"}});
        },
        "Copy object failed: enum value 'Green' is not a valid choice in the given type");
    EXPECT_EQ(*target, Colour::Red);
}

TEST_F(VisitorsTest, CopyConstructableMapThroughFreeStandingInstance_KeepsIdsConfigurationsAndStates) {
    m_data->channels.add(7, Settings{"seven", Colour::Blue});
    m_data->channels.get(7).second.muted = true;
    const AbstractType& type = *fixtureType().get<StructType>().children[10].type;
    ObjectFactory scratch = newInstance(type);
    copyValue(*child("Channels")(), *scratch(), type);

    auto target = std::make_shared<FixtureData>();
    copyValue(*scratch(), *convertTo<IStruct>(fixtureTree(target))->getChild("Channels")(), type);
    // The target builds each state itself from the id, then takes the copied values over it.
    EXPECT_EQ(target->channels.ids(), (std::vector<std::int32_t>{0, 7}));
    EXPECT_EQ(target->channels.get(7).first, (Settings{"seven", Colour::Blue}));
    EXPECT_EQ(target->channels.get(7).second, (Channel{7, true}));
    EXPECT_EQ(target->channels.nextId(), 8);
}

}  // namespace
