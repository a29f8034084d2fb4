#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "config/abstract_variable/declaration.h"
#include "config/abstract_variable/testing/fixture_tree.h"
#include "testing/expect_failure.h"

namespace {

using namespace ovtx::config::abstract_variable::lib_abstract_variable::v2;
using namespace ovtx::config::abstract_variable::testing::v1;
using ovtx::config::abstract_variable::abstract_type::v1::NamedType;
using ovtx::test_support::v1::expectFailure;

class ObjectModelTest : public ::testing::Test {
  protected:
    template <typename T>
    Converted<T> child(const std::string& name, bool lookThroughReadOnly = false) {
        auto root = convertTo<IStruct>(m_root);
        return convertTo<T>(root->getChild(name), lookThroughReadOnly);
    }

    std::shared_ptr<FixtureData> m_data = std::make_shared<FixtureData>(makeFixtureData());
    ObjectFactory m_root = fixtureTree(m_data);
};

TEST(EnumDeclTest, FromString_AcceptsNameAndDecimalNumber_ToStringGivesName) {
    enum class Mode { Idle = 0, Run = 2 };
    auto decl =
        GetEnumDecl<Mode>({Mode::Idle, Mode::Run}, [](Mode m) { return m == Mode::Idle ? "Idle" : "Run"; });
    EXPECT_EQ(decl->values(), (std::vector<std::int32_t>{0, 2}));
    EXPECT_EQ(decl->fromString("Run"), 2);
    EXPECT_EQ(decl->fromString("2"), 2);
    EXPECT_EQ(decl->toString(2), "Run");
    expectFailure([&] { decl->fromString("1"); }, "No such enum value: [1]");
    expectFailure([&] { decl->fromString("Walk"); }, "No such enum value: [Walk]");
    expectFailure([&] { decl->toString(1); }, "No such enum value: [1]");
}

TEST_F(ObjectModelTest, EnumField_SetByNumberStoresNativeValueAndReadsBackName) {
    auto colour = child<IEnum>("Colour");
    EXPECT_EQ(colour->get(), "Green");
    colour->set("5");
    EXPECT_EQ(m_data->colour, Colour::Blue);
    EXPECT_EQ(colour->get(), "Blue");
    expectFailure([&] { colour->set("Purple"); }, "No such enum value: [Purple]");
    EXPECT_EQ(m_data->colour, Colour::Blue);
}

TEST(NewVariableTest, StringLeaf_HoldsItsValueAlive) {
    auto value = std::make_shared<std::string>("first");
    std::unique_ptr<IVariable<std::string>> leaf = NewVariable_Impl(value);
    value.reset();
    leaf->set("second");
    EXPECT_EQ(leaf->get(), "second");
    EXPECT_EQ(getTypeString(leaf.get()), "string");
}

TEST(CDynStructTest, EmptyTable_EveryChildFails) {
    CDynStruct empty({});
    expectFailure([&] { empty.getChild("x"); }, "No such variable: x");
    expectFailure([&] { empty.getChild(""); }, "No such variable: ");
    EXPECT_TRUE(empty.getTypeFunction()()->children.empty());
}

TEST(CDynStructTest, TypeWithoutRecord_IsMadeFromChildrenInOrder) {
    auto level = std::make_shared<std::int32_t>(3);
    auto name = std::make_shared<std::string>("n");
    CDynStruct view({{"Name", variableOf(name, name.get())}, {"Level", variableOf(level, level.get())}});
    const StructType expected{
        {{"Name", VariableType<std::string>{}}, {"Level", VariableType<std::int32_t>{}}}};
    EXPECT_EQ(*view.getTypeFunction()(), expected);
}

TEST(CDynStructTest, CopiesShareTableAndSeeTheSameData) {
    auto level = std::make_shared<std::int32_t>(3);
    ObjectFactory structure = CDynStruct({{"Level", variableOf(level, level.get())}}).factory();
    auto first = convertTo<IVariable<std::int32_t>>(convertTo<IStruct>(structure)->getChild("Level"));
    auto second = convertTo<IVariable<std::int32_t>>(convertTo<IStruct>(structure)->getChild("Level"));
    first->set(11);
    EXPECT_EQ(second->get(), 11);
    EXPECT_EQ(*level, 11);
}

TEST_F(ObjectModelTest, UnknownChild_FailsWithItsName) {
    auto root = convertTo<IStruct>(m_root);
    expectFailure([&] { root->getChild("Missing"); }, "No such variable: Missing");
    EXPECT_THROW(root->getChild("Missing"), AbstractVariableException);
    EXPECT_THROW(root->getChild("Missing"), ovtx::cpp_utils::exception_utils::v1::OrvantaException);
}

TEST_F(ObjectModelTest, FactoryCalledTwice_ViewsSeeEachOthersWrites) {
    ObjectFactory factory = convertTo<IStruct>(m_root)->getChild("Text");
    auto first = convertTo<IVariable<std::string>>(factory);
    auto second = convertTo<IVariable<std::string>>(factory);
    ASSERT_NE(first.get(), second.get());
    first->set("changed");
    EXPECT_EQ(second->get(), "changed");
    EXPECT_EQ(m_data->text, "changed");
}

TEST_F(ObjectModelTest, ViewOutlivesCallerReference_KeepsDataAlive) {
    auto text = child<IVariable<std::string>>("Text");
    m_data.reset();
    m_root = nullptr;
    EXPECT_EQ(text->get(), "hello");
}

TEST_F(ObjectModelTest, Vector_ResizesNativeContainerAndViewsElements) {
    auto points = child<IVector>("Points");
    EXPECT_EQ(points->size(), 2);
    points->resize(3);
    EXPECT_EQ(m_data->points.size(), 3u);
    convertTo<IVariable<std::int32_t>>(convertTo<IStruct>(points->get(1))->getChild("Y"))->set(60);
    EXPECT_EQ(m_data->points[1].y, 60);
    ObjectFactory last = points->get(2);
    points->resize(2);
    EXPECT_THROW(last(), std::out_of_range);
    try {
        points->get(2);
        ADD_FAILURE() << "index 2 of 2 accepted";
    } catch (const std::out_of_range& failure) {
        EXPECT_STREQ(failure.what(), "invalid vector<T> subscript");
    }
}

TEST_F(ObjectModelTest, FixedVectors_RejectOtherSizes) {
    auto fixed = child<IVector>("Fixed");
    fixed->resize(3);
    expectFailure([&] { fixed->resize(4); }, "resize is not allowed");
    EXPECT_EQ(m_data->fixed.size(), 3u);

    auto array = std::make_shared<std::array<std::int32_t, 2>>();
    auto view = convertTo<IVector>(
        declareVector<std::array<std::int32_t, 2>>(declare<std::int32_t>()).factory(array));
    expectFailure([&] { view->resize(5); }, "Cannot resize vector");
    EXPECT_EQ(view->size(), 2);
}

TEST_F(ObjectModelTest, Maps_AddRemoveAndFailOnUnknownIds) {
    auto byId = child<IMap<std::int32_t>>("ById");
    EXPECT_EQ(byId->ids(), (std::vector<std::int32_t>{4}));
    byId->add(9);
    convertTo<IVariable<std::int32_t>>(convertTo<IStruct>(byId->get(9))->getChild("X"))->set(90);
    EXPECT_EQ(m_data->byId.at(9).x, 90);
    ObjectFactory four = byId->get(4);
    byId->remove(4);
    expectFailure([&] { byId->get(4); }, "such id does not exist");
    expectFailure([&] { four(); }, "such id does not exist");  // a factory finds its element anew
    expectFailure([&] { byId->remove(4); }, "such id does not exist");

    auto byName = child<IMap<std::string>>("ByName");
    EXPECT_EQ(byName->ids(), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(convertTo<IVariable<std::string>>(byName->get("b"))->get(), "beta");
}

void setName(IAbstractObject& settings, const std::string& name) {
    convertTo<IVariable<std::string>>(convertTo<IStruct>(settings)->getChild("Name"))->set(name);
}

TEST_F(ObjectModelTest, ConstructableMap_AddsFromConfigurationObjectsWithIdRules) {
    auto channels = child<IConstructableObjectMap>("Channels");
    auto settings = channels->newConfiguration()();
    setName(*settings, "aux");
    EXPECT_EQ(channels->add(*settings), 1);
    EXPECT_EQ(m_data->channels.get(1).second.level, 1);
    expectFailure([&] { channels->add(*settings); },
                  "An element with such configuration is already in the map");

    setName(*settings, "five");
    channels->add(5, *settings);
    setName(*settings, "other");
    expectFailure([&] { channels->add(5, *settings); }, "such id already exists");
    channels->add(3, *settings);
    setName(*settings, "six");
    EXPECT_EQ(channels->add(*settings), 6);

    ConstructableElement five = channels->get(5);
    EXPECT_EQ(
        convertTo<IVariable<std::string>>(convertTo<IStruct>(five.first(), true)->getChild("Name"))->get(),
        "five");
    expectFailure([&] { convertTo<IStruct>(five.first(), false); }, "Cannot convert read only variable");
    convertTo<IVariable<bool>>(convertTo<IStruct>(five.second)->getChild("Muted"))->set(true);
    EXPECT_TRUE(m_data->channels.get(5).second.muted);

    const std::int32_t counter = m_data->channels.modificationCounter();
    channels->remove(6);
    expectFailure([&] { channels->remove(6); }, "such id does not exist");
    expectFailure([&] { channels->get(6); }, "such id does not exist");
    EXPECT_EQ(m_data->channels.modificationCounter(), counter + 1);
    EXPECT_EQ(m_data->channels.nextId(), 7);
    EXPECT_EQ(channels->ids(), (std::vector<std::int32_t>{0, 1, 3, 5}));
}

TEST_F(ObjectModelTest, NonFullUnion_SwitchesNativeVariantAndOffersOnlyCurrentValue) {
    auto choice = child<IUnion>("Choice");
    EXPECT_EQ(choice->getCurrentType(), "Point");
    expectFailure([&] { choice->getValue("Label"); }, "Invalid union type");
    choice->setCurrentType("Label");
    ASSERT_TRUE(std::holds_alternative<std::string>(m_data->choice));
    convertTo<IVariable<std::string>>(choice->getValue("Label"))->set("tag");
    EXPECT_EQ(std::get<std::string>(m_data->choice), "tag");
    expectFailure([&] { choice->setCurrentType("Nothing"); }, "Invalid union type");
}

TEST_F(ObjectModelTest, FullUnion_OffersEveryAlternative) {
    auto selector = child<IUnion>("Selector");
    EXPECT_EQ(selector->getCurrentType(), "Count");
    EXPECT_EQ(convertTo<IVariable<std::int64_t>>(selector->getValue("Count"))->get(), 13);
    convertTo<IVariable<std::int32_t>>(convertTo<IStruct>(selector->getValue("Point"))->getChild("X"))
        ->set(99);
    EXPECT_EQ(m_data->selector.point.x, 99);
    selector->setCurrentType("Point");
    EXPECT_EQ(m_data->selector.current, "Point");
    expectFailure([&] { selector->setCurrentType("Other"); }, "Invalid union type");
}

TEST_F(ObjectModelTest, Function_FillsParameterAndReturnsResult) {
    auto sum = child<IFunction>("Sum");
    auto parameter = sum->newParameter()();
    auto point = convertTo<IStruct>(*parameter);
    convertTo<IVariable<std::int32_t>>(point->getChild("X"))->set(100);
    convertTo<IVariable<std::int32_t>>(point->getChild("Y"))->set(20);
    ObjectFactory result = sum->call(*parameter);
    EXPECT_EQ(convertTo<IVariable<std::int32_t>>(result)->get(), 127);
}

TEST_F(ObjectModelTest, FileAndData_ReadAndWriteNativeBytes) {
    auto file = child<IFile>("File");
    const std::uint8_t more[] = {'d', 'e'};
    file->append(more, sizeof more);
    EXPECT_EQ(m_data->file.bytes, (std::vector<std::uint8_t>{'a', 'b', 'c', 'd', 'e'}));
    std::uint8_t buffer[4] = {};
    EXPECT_EQ(file->read(buffer, 4, 3), 2u);
    EXPECT_EQ(buffer[0], 'd');
    EXPECT_EQ(file->read(buffer, 4, 5), 0u);
    EXPECT_EQ(file->mimeType(), "text/plain");
    file->set("image/png", more, 1);
    EXPECT_EQ(file->get(), (FileContent{"image/png", {'d'}}));

    auto blob = child<IData>("Blob");
    auto reader = blob->newReader();
    {
        auto writer = blob->newWriter();
        EXPECT_EQ(writer->send(more, sizeof more), 2u);
    }
    EXPECT_EQ(m_data->blob, (std::vector<std::uint8_t>{'d', 'e'}));
    EXPECT_EQ(reader->receive(buffer, 4), 3u);  // the snapshot taken before the write
    EXPECT_EQ(reader->receive(buffer, 4), 0u);
}

TEST_F(ObjectModelTest, ConstructableMap_TakesAddsAndReadsFromSeveralThreadsAtOnce) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 50;
    ObjectFactory channels = convertTo<IStruct>(m_root)->getChild("Channels");
    std::vector<std::thread> workers;
    for (int worker = 0; worker < kThreads; ++worker) {
        workers.emplace_back([channels, worker] {
            auto map = convertTo<IConstructableObjectMap>(channels);
            for (int index = 0; index < kPerThread; ++index) {
                const std::int32_t id = 100 + worker * kPerThread + index;
                auto settings = map->newConfiguration()();
                setName(*settings, "channel " + std::to_string(id));
                map->add(id, *settings);
                convertTo<IVariable<std::int32_t>>(convertTo<IStruct>(map->get(id).second)->getChild("Level"))
                    ->set(-id);
            }
        });
    }
    for (auto& worker : workers) {
        worker.join();
    }
    ASSERT_EQ(m_data->channels.size(), 1u + kThreads * kPerThread);
    EXPECT_EQ(m_data->channels.get(150).first.name, "channel 150");
    EXPECT_EQ(m_data->channels.get(150).second.level, -150);
    EXPECT_EQ(m_data->channels.nextId(), 100 + kThreads * kPerThread);
}

TEST(DeclarationTest, VoidParameterAndResult_AreEmptyStructs) {
    struct Counter {
        int calls = 0;
    };
    auto counter = std::make_shared<Counter>();
    auto declaration = StructDeclaration<Counter>()
                           .method<Void, Void>("Tick", declare<Void>(), declare<Void>(),
                                               [](Counter& c, const Void&) { return ++c.calls, Void{}; })
                           .build();
    auto tick = convertTo<IFunction>(convertTo<IStruct>(declaration.factory(counter))->getChild("Tick"));
    auto parameter = tick->newParameter()();
    auto result = convertTo<IStruct>(tick->call(*parameter));
    EXPECT_TRUE(result->getTypeFunction()()->children.empty());
    expectFailure([&] { result->getChild("Anything"); }, "No such variable: Anything");
    EXPECT_EQ(counter->calls, 1);
    EXPECT_EQ(getObjectType(*tick), AbstractType(FunctionType{StructType{}, StructType{}}));
}

TEST(NewInstanceTest, EveryVarietyButData_BuildsObjectsOfItsType) {
    const std::vector<AbstractType> types = {
        VariableType<std::int32_t>{},
        VariableType<std::int64_t>{},
        VariableType<bool>{},
        VariableType<std::string>{},
        StructType{{{"A", VariableType<bool>{}}}},
        VectorType{VariableType<std::string>{}},
        MapType<std::int32_t>{VariableType<bool>{}},
        MapType<std::string>{VariableType<bool>{}},
        ConstructableObjectMapType{VariableType<std::string>{}, VariableType<std::int32_t>{}},
        FunctionType{StructType{}, VariableType<std::int32_t>{}},
        FileType{},
        ReadOnlyType{VariableType<std::int32_t>{}},
        EnumType{{"A", "B"}},
        UnionType{{{"A", VariableType<bool>{}}, {"B", VariableType<std::string>{}}}, true},
    };
    for (const AbstractType& type : types) {
        auto object = newInstance(type)();
        EXPECT_EQ(getObjectType(*object), type) << varietyName(type);
    }
    expectFailure([] { newInstance(DataType{}); }, "Not implemented: newInstance<DataType>");
    expectFailure([] { newInstance(fixtureType()); }, "Not implemented: newInstance<DataType>");
}

TEST(NewInstanceTest, EnumAndUnion_CheckNamesAgainstTheirType) {
    auto colour = convertTo<IEnum>(newInstance(EnumType{{"Red", "Blue"}}));
    EXPECT_EQ(colour->get(), "Red");
    colour->set("Blue");
    expectFailure([&] { colour->set("blue"); }, "'blue' is not a valid choice in this enum");
    EXPECT_EQ(colour->get(), "Blue");

    ObjectFactory factory =
        newInstance(UnionType{{{"A", VariableType<bool>{}}, {"B", VariableType<std::string>{}}}});
    auto choice = convertTo<IUnion>(factory);
    expectFailure([&] { choice->setCurrentType("C"); }, "Invalid union type");
    choice->setCurrentType("B");
    convertTo<IVariable<std::string>>(choice->getValue("B"))->set("kept");
    EXPECT_EQ(convertTo<IUnion>(factory)->getCurrentType(), "B");
    EXPECT_EQ(convertTo<IVariable<std::string>>(convertTo<IUnion>(factory)->getValue("B"))->get(), "kept");
}

TEST(NewInstanceTest, ViewsOfOneInstance_ShareStorage) {
    ObjectFactory factory = newVectorInstance(VectorType{StructType{{{"N", VariableType<std::int64_t>{}}}}});
    convertTo<IVector>(factory)->resize(2);
    auto element = convertTo<IStruct>(convertTo<IVector>(factory)->get(1));
    convertTo<IVariable<std::int64_t>>(element->getChild("N"))->set(5);
    auto again = convertTo<IStruct>(convertTo<IVector>(factory)->get(1));
    EXPECT_EQ(convertTo<IVariable<std::int64_t>>(again->getChild("N"))->get(), 5);
    EXPECT_EQ(convertTo<IVariable<std::int64_t>>(
                  convertTo<IStruct>(convertTo<IVector>(factory)->get(0))->getChild("N"))
                  ->get(),
              0);
}

}  // namespace
