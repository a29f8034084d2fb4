#include "config/abstract_variable/testing/fixture_tree.h"

namespace ovtx::config::abstract_variable::testing::v1 {

namespace {

using namespace lib_abstract_variable::v2;

std::string colourName(Colour colour) {
    switch (colour) {
        case Colour::Red:
            return "Red";
        case Colour::Green:
            return "Green";
        case Colour::Blue:
            return "Blue";
    }
    return "?";
}

Declaration<FixtureData> buildFixtureDeclaration() {
    const auto& point = pointDeclaration();
    const auto settings = StructDeclaration<Settings>()
                              .field("Name", &Settings::name)
                              .field("Colour", &Settings::colour, colourDeclaration())
                              .build();
    const auto channel =
        StructDeclaration<Channel>().field("Level", &Channel::level).field("Muted", &Channel::muted).build();
    const auto selector = FullUnionDeclaration<Selector>(&Selector::current)
                              .alternative("Point", &Selector::point, point)
                              .alternative("Count", &Selector::count)
                              .build();
    return StructDeclaration<FixtureData>()
        .field("Int32", &FixtureData::int32)
        .field("Int64", &FixtureData::int64)
        .field("Flag", &FixtureData::flag)
        .field("Text", &FixtureData::text)
        .field("Colour", &FixtureData::colour, colourDeclaration())
        .field("Point", &FixtureData::point, point)
        .field("Points", &FixtureData::points, declareVector<std::vector<Point>>(point))
        .field("Fixed", &FixtureData::fixed,
               declareVector<decltype(FixtureData::fixed)>(declare<std::int32_t>()))
        .field("ById", &FixtureData::byId, declareMap<std::map<std::int32_t, Point>>(point))
        .field("ByName", &FixtureData::byName,
               declareMap<std::map<std::string, std::string>>(declare<std::string>()))
        .field("Channels", &FixtureData::channels, declareConstructableMap(settings, channel))
        .method<Point, std::int32_t>("Sum", point, declare<std::int32_t>(),
                                     [](FixtureData& data, const Point& p) { return p.x + p.y + data.int32; })
        .field("File", &FixtureData::file)
        .field("Blob", &FixtureData::blob, declareData())
        .readOnlyField("Locked", &FixtureData::locked)
        .field("Choice", &FixtureData::choice,
               declareVariant<std::variant<Point, std::string>>({"Point", "Label"}, point,
                                                                declare<std::string>()))
        .field("Selector", &FixtureData::selector, selector)
        .build();
}

}  // namespace

FixtureData makeFixtureData() {
    FixtureData data;
    data.int32 = 7;
    data.int64 = std::int64_t{1} << 40;
    data.flag = true;
    data.text = "hello";
    data.colour = Colour::Green;
    data.point = {1, 2};
    data.points = {{3, 4}, {5, 6}};
    data.fixed = {10, 20, 30};
    data.byId = {{4, {7, 8}}};
    data.byName = {{"a", "alpha"}, {"b", "beta"}};
    data.channels.add(Settings{"main", Colour::Red});
    data.file = {"text/plain", {'a', 'b', 'c'}};
    data.blob = {1, 2, 3};
    data.locked = 42;
    data.choice = Point{9, 10};
    data.selector = {"Count", {11, 12}, 13};
    return data;
}

const Declaration<Colour>& colourDeclaration() {
    static const auto kDeclaration =
        declareEnum<Colour>({Colour::Red, Colour::Green, Colour::Blue}, colourName);
    return kDeclaration;
}

const Declaration<Point>& pointDeclaration() {
    static const auto kDeclaration =
        StructDeclaration<Point>().field("X", &Point::x).field("Y", &Point::y).build();
    return kDeclaration;
}

const Declaration<FixtureData>& fixtureDeclaration() {
    static const auto kDeclaration = buildFixtureDeclaration();
    return kDeclaration;
}

ObjectFactory fixtureTree(std::shared_ptr<FixtureData> data) {
    return fixtureDeclaration().factory(std::move(data));
}

const AbstractType& fixtureType() {
    return fixtureDeclaration().type();
}

}  // namespace ovtx::config::abstract_variable::testing::v1
