// Cost of the view model: building views per navigation step, reading a leaf, copying a tree.
#include <benchmark/benchmark.h>

#include "config/abstract_variable/testing/fixture_tree.h"

namespace {

using namespace ovtx::config::abstract_variable::lib_abstract_variable::v2;
using namespace ovtx::config::abstract_variable::testing::v1;

// Root view, child factory, element view, leaf view, get: what one REST read of a leaf costs.
void BM_NavigateToNestedLeaf(benchmark::State& state) {
    auto data = std::make_shared<FixtureData>(makeFixtureData());
    ObjectFactory root = fixtureTree(data);
    for (auto _ : state) {
        auto points = convertTo<IVector>(convertTo<IStruct>(root)->getChild("Points"));
        auto y = convertTo<IVariable<std::int32_t>>(convertTo<IStruct>(points->get(1))->getChild("Y"));
        benchmark::DoNotOptimize(y->get());
    }
}
BENCHMARK(BM_NavigateToNestedLeaf);

// A vector of structs copied into native storage, element by element.
void BM_CopyVectorOfStructs(benchmark::State& state) {
    const auto declaration = declareVector<std::vector<Point>>(pointDeclaration());
    auto source = std::make_shared<std::vector<Point>>(static_cast<std::size_t>(state.range(0)), Point{1, 2});
    auto target = std::make_shared<std::vector<Point>>();
    for (auto _ : state) {
        copyValue(*declaration.factory(source)(), *declaration.factory(target)(), declaration.type());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_CopyVectorOfStructs)->Arg(1000);

// The whole fixture tree, every variety, into a second native tree.
void BM_CopyFixtureTree(benchmark::State& state) {
    auto source = std::make_shared<FixtureData>(makeFixtureData());
    auto target = std::make_shared<FixtureData>();
    ObjectFactory from = fixtureTree(source);
    ObjectFactory to = fixtureTree(target);
    for (auto _ : state) {
        copyValue(*from(), *to(), fixtureType());
    }
}
BENCHMARK(BM_CopyFixtureTree);

}  // namespace

BENCHMARK_MAIN();
