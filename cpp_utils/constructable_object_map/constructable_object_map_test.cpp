#include "cpp_utils/constructable_object_map/constructable_object_map.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using ovtx::cpp_utils::constructable_object_map::v2::ConstructableObjectMap;
using ovtx::cpp_utils::constructable_object_map::v2::EmptyConfig;
using ovtx::cpp_utils::constructable_object_map::v2::NeverClash;

using NamedMap = ConstructableObjectMap<std::string, std::string>;

NamedMap makeNamedMap() {
    return NamedMap([](const std::string& name, std::int32_t id) { return name + "#" + std::to_string(id); });
}

void expectFailure(const std::function<void()>& action, const std::string& text) {
    try {
        action();
        FAIL() << "expected: " << text;
    } catch (const std::exception& failure) {
        EXPECT_EQ(failure.what(), text);
    }
}

TEST(ConstructableObjectMapTest, AutomaticAdd_BuildsStateWithConfigurationAndId) {
    NamedMap map = makeNamedMap();
    EXPECT_EQ(map.add("a"), 0);
    EXPECT_EQ(map.add("b"), 1);
    EXPECT_EQ(map.get(1).second, "b#1");
    EXPECT_EQ(map.ids(), (std::vector<std::int32_t>{0, 1}));
}

TEST(ConstructableObjectMapTest, ExplicitId_MovesNextIdForwardOnly) {
    NamedMap map = makeNamedMap();
    map.add("a");
    map.add("b");
    ASSERT_EQ(map.nextId(), 2);
    map.add(5, "c");
    EXPECT_EQ(map.nextId(), 6);
    map.add(3, "d");
    EXPECT_EQ(map.nextId(), 6);
    EXPECT_EQ(map.add("e"), 6);
}

TEST(ConstructableObjectMapTest, RemovingHighestId_DoesNotLowerNextId) {
    NamedMap map = makeNamedMap();
    map.add("a");
    const std::int32_t highest = map.add("b");
    map.remove(highest);
    EXPECT_EQ(map.add("c"), highest + 1);
}

TEST(ConstructableObjectMapTest, ModificationCounter_CountsAddsAndRemoves) {
    NamedMap map = makeNamedMap();
    map.add("a");
    map.add(7, "b");
    map.remove(0);
    EXPECT_EQ(map.modificationCounter(), 3);
    EXPECT_ANY_THROW(map.remove(0));
    EXPECT_EQ(map.modificationCounter(), 3);
}

TEST(ConstructableObjectMapTest, Failures_CarryTheirTextsAndLeaveMapUnchanged) {
    NamedMap map = makeNamedMap();
    map.add("a");
    expectFailure([&] { map.add(0, "z"); }, "such id already exists");
    expectFailure([&] { map.remove(4); }, "such id does not exist");
    expectFailure([&] { map.get(4); }, "such id does not exist");
    expectFailure([&] { map.add("a"); }, "An element with such configuration is already in the map");
    expectFailure([&] { map.add(9, "a"); }, "An element with such configuration is already in the map");
    EXPECT_EQ(map.size(), 1u);
    EXPECT_EQ(map.nextId(), 1);
}

TEST(ConstructableObjectMapTest, EmptyConfigAndNeverClash_HoldEqualConfigurations) {
    ConstructableObjectMap<EmptyConfig, int> sessions([](const EmptyConfig&, std::int32_t id) { return id; });
    sessions.add(EmptyConfig{});
    sessions.add(EmptyConfig{});
    EXPECT_EQ(sessions.size(), 2u);

    ConstructableObjectMap<std::string, int, NeverClash> heap(
        [](const std::string&, std::int32_t id) { return id; });
    heap.add("int32");
    heap.add("int32");
    EXPECT_EQ(heap.size(), 2u);
}

}  // namespace
