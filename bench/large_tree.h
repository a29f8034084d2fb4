// The large tree of the JSON benchmarks: a constructable map of 10,000 elements, each with a
// configuration {Name} and a state of twelve leaves, and a data object of 10 MB.
//
//   const Declaration<Tree> declaration = treeDeclaration();
//   std::shared_ptr<Tree> tree = makeTree();
//   ObjectFactory root = declaration.factory(tree);
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "config/abstract_variable/declaration.h"

namespace ovtx::bench::large_tree {

using namespace ovtx::config::abstract_variable::lib_abstract_variable::v2;
using ovtx::cpp_utils::constructable_object_map::v2::ConstructableObjectMap;

inline constexpr int kElements = 10000;
inline constexpr std::size_t kDataBytes = 10 * 1000 * 1000;

struct Config {
    std::string name;
    friend bool operator==(const Config&, const Config&) = default;
};

struct State {
    std::int32_t width = 0, height = 0, rate = 0, frames = 0;
    std::int64_t received = 0, dropped = 0, lastTime = 0;
    bool locked = false, muted = false;
    std::string format, source, comment;
};

using Elements = ConstructableObjectMap<Config, State>;

struct Tree {
    Elements elements{[](const Config&, std::int32_t id) {
        State state;
        state.width = id;
        return state;
    }};
    std::vector<std::uint8_t> blob;
};

inline Declaration<Config> configDeclaration() {
    return StructDeclaration<Config>().field("Name", &Config::name).build();
}

inline Declaration<State> stateDeclaration() {
    return StructDeclaration<State>()
        .field("Width", &State::width)
        .field("Height", &State::height)
        .field("Rate", &State::rate)
        .field("Frames", &State::frames)
        .field("Received", &State::received)
        .field("Dropped", &State::dropped)
        .field("LastTime", &State::lastTime)
        .field("Locked", &State::locked)
        .field("Muted", &State::muted)
        .field("Format", &State::format)
        .field("Source", &State::source)
        .field("Comment", &State::comment)
        .build();
}

inline Declaration<Tree> treeDeclaration() {
    return StructDeclaration<Tree>()
        .field("Elements", &Tree::elements, declareConstructableMap(configDeclaration(), stateDeclaration()))
        .field("Blob", &Tree::blob, declareData())
        .build();
}

inline std::shared_ptr<Tree> makeTree() {
    auto tree = std::make_shared<Tree>();
    for (int id = 0; id < kElements; ++id) {
        tree->elements.add(Config{"element " + std::to_string(id)});
        State& state = tree->elements.get(id).second;
        state = State{1920,
                      1080,
                      50,
                      id,
                      std::int64_t{id} << 20,
                      id % 7,
                      std::int64_t{id} * 400000,
                      id % 2 == 0,
                      id % 3 == 0,
                      "1080i50",
                      "SDI " + std::to_string(id % 4),
                      "no comment"};
    }
    tree->blob.resize(kDataBytes);
    for (std::size_t index = 0; index < kDataBytes; ++index) {
        tree->blob[index] = static_cast<std::uint8_t>(index * 31 + (index >> 8));
    }
    return tree;
}

}  // namespace ovtx::bench::large_tree
