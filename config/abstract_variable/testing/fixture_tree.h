// A tree of abstract variables over native structs that holds every variety, for tests.
//
// Tests of the variable layer, of JSON values, of paths and of the REST service share this tree,
// so that each variety is exercised over real native data. The root is a struct over
// `FixtureData`; its children, in order, with the values that `makeFixtureData()` gives them:
//
//   | Child      | Variety                   | Native member / content                          |
//   |------------|---------------------------|--------------------------------------------------|
//   | "Int32"    | int32                     | int32 = 7                                        |
//   | "Int64"    | int64                     | int64 = 1 << 40                                  |
//   | "Flag"     | bool                      | flag = true                                      |
//   | "Text"     | string                    | text = "hello"                                   |
//   | "Colour"   | enum Red(0) Green(2) Blue(5) | colour = Green                                |
//   | "Point"    | struct "X", "Y" (int32)   | point = {1, 2}                                   |
//   | "Points"   | vector of Point           | points = {{3, 4}, {5, 6}}, resizable             |
//   | "Fixed"    | vector of int32           | fixed = {10, 20, 30}, not resizable              |
//   | "ById"     | map of Point              | byId = {4: {7, 8}}                               |
//   | "ByName"   | map_str of string         | byName = {"a": "alpha", "b": "beta"}             |
//   | "Channels" | constructable_object_map  | config Settings "Name", "Colour" (equal settings |
//   |            |   config struct, state    |   clash); state Channel "Level" int32, "Muted"   |
//   |            |   struct                  |   bool; one element: id 0 {"main", Red}          |
//   | "Sum"      | function Point -> int32   | returns X + Y + the root's Int32                 |
//   | "File"     | file                      | file = {"text/plain", "abc"}                     |
//   | "Blob"     | data                      | blob = {1, 2, 3}                                 |
//   | "Locked"   | read_only of int32        | locked = 42                                      |
//   | "Choice"   | union, not full:          | choice = Point {9, 10}                           |
//   |            |   "Point" struct, "Label" string                                             |
//   | "Selector" | union, full: "Point" struct, "Count" int64; current "Count", point {11, 12},  |
//   |            |   count = 13                                                                  |
//
//   auto data = std::make_shared<FixtureData>(makeFixtureData());
//   ObjectFactory root = fixtureTree(data);       // views keep `data` alive
//   const AbstractType& type = fixtureType();     // the root's record
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "config/abstract_variable/declaration.h"
#include "cpp_utils/constructable_object_map/constructable_object_map.h"
#include "cpp_utils/cpp_tools/not_resizable_vector.h"

namespace ovtx::config::abstract_variable::testing::v1 {

using lib_abstract_variable::v2::AbstractType;
using lib_abstract_variable::v2::Declaration;
using lib_abstract_variable::v2::FileContent;
using lib_abstract_variable::v2::ObjectFactory;

enum class Colour { Red = 0, Green = 2, Blue = 5 };

struct Point {
    std::int32_t x = 0;
    std::int32_t y = 0;
    friend bool operator==(const Point&, const Point&) = default;
};

struct Settings {
    std::string name;
    Colour colour = Colour::Red;
    friend bool operator==(const Settings&, const Settings&) = default;
};

struct Channel {
    std::int32_t level = 0;
    bool muted = false;
    friend bool operator==(const Channel&, const Channel&) = default;
};

// The native side of the full union: every alternative and the name of the current one.
struct Selector {
    std::string current = "Point";
    Point point;
    std::int64_t count = 0;
};

using Channels = cpp_utils::constructable_object_map::v2::ConstructableObjectMap<Settings, Channel>;

struct FixtureData {
    std::int32_t int32 = 0;
    std::int64_t int64 = 0;
    bool flag = false;
    std::string text;
    Colour colour = Colour::Red;
    Point point;
    std::vector<Point> points;
    cpp_utils::cpp_tools::v1::not_resizable_vector<std::int32_t> fixed{0, 0, 0};
    std::map<std::int32_t, Point> byId;
    std::map<std::string, std::string> byName;
    // Each new channel starts at the level of its id.
    Channels channels{[](const Settings&, std::int32_t id) { return Channel{id, false}; }};
    FileContent file;
    std::vector<std::uint8_t> blob;
    std::int32_t locked = 0;
    std::variant<Point, std::string> choice;
    Selector selector;
};

// The data with the values of the table above.
FixtureData makeFixtureData();

// The declarations of the native types, for tests that build trees of their own.
const Declaration<Colour>& colourDeclaration();
const Declaration<Point>& pointDeclaration();
const Declaration<FixtureData>& fixtureDeclaration();

// The root's factory; views keep `data` alive.
ObjectFactory fixtureTree(std::shared_ptr<FixtureData> data);

// The root's type record.
const AbstractType& fixtureType();

}  // namespace ovtx::config::abstract_variable::testing::v1
