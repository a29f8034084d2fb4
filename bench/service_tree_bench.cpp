// The service tree's share of a REST answer: the views of the root (or of one leaf) built afresh
// and written as styled JSON text straight from the walk, as a GET does; beside jsoncpp alone
// writing the same document from a JSON value made beforehand. The HTTP side is measured by bench/daemon_http_bench.sh.
#include <benchmark/benchmark.h>
#include <json/writer.h>

#include <string>

#include "app/service_tree.h"
#include "config/abstract_variable/value_json.h"
#include "config/abstract_variable/variable_path.h"
#include "config/abstract_variable/visitors.h"

namespace {

namespace av = ovtx::config::abstract_variable::lib_abstract_variable::v2;
using ovtx::app::sdi_tap::v1::AudioPairStatistic;
using ovtx::app::sdi_tap::v1::buildServiceTree;
using ovtx::app::sdi_tap::v1::CaptureState;
using ovtx::system::sdi::deltacast_io::v1::BoardInfo;

// A capture run with 1080p25 and eight 48 kHz pairs.
class SteadyCapture : public CaptureState {
  public:
    std::int32_t detectedFormat() const override { return 3; }
    std::int32_t quadrantFormat(std::size_t) const override { return 3; }
    AudioPairStatistic audioStatistic(std::size_t) const override { return {1, 100}; }
};

BoardInfo boardInfo() {
    BoardInfo info;
    info.ApiAvailable = true;
    info.NbSdiBoard = 1;
    info.ApiVersion = "6.21.4";
    info.PropertiesValid = true;
    info.DriverVersion = "6.21.4";
    info.FirmwareVersion = "7";
    info.FirmwareReleaseDate = "18-03-10";
    info.BoardType = 6;
    info.IsPCIExpress = true;
    info.NumRXchannels = 4;
    return info;
}

std::string jsonTextOf(const av::ObjectFactory& node) {
    const std::unique_ptr<av::IAbstractObject> object = node();
    return av::SerializeValueToStyledJson(object.get(), av::getObjectType(*object), {});
}

void throughTree(benchmark::State& state, const std::vector<std::string>& path) {
    const SteadyCapture engine;
    const av::ObjectFactory root = buildServiceTree(&engine, false, boardInfo());
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::string text = jsonTextOf(av::FindObjectAtPath(root, path));
        bytes += text.size();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

void jsoncppAlone(benchmark::State& state, const std::vector<std::string>& path) {
    const SteadyCapture engine;
    const av::ObjectFactory node = av::FindObjectAtPath(buildServiceTree(&engine, false, boardInfo()), path);
    const std::unique_ptr<av::IAbstractObject> object = node();
    const Json::Value value = av::SerializeValueToJson(object.get(), av::getObjectType(*object), {});
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::string text = Json::StyledWriter().write(value);
        bytes += text.size();
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

const std::vector<std::string> kRoot;
const std::vector<std::string> kLeaf = {"AudioSampling", "1", "DataRate"};

void BM_RootThroughTree(benchmark::State& state) {
    throughTree(state, kRoot);
}
void BM_RootJsoncppAlone(benchmark::State& state) {
    jsoncppAlone(state, kRoot);
}
void BM_LeafThroughTree(benchmark::State& state) {
    throughTree(state, kLeaf);
}
void BM_LeafJsoncppAlone(benchmark::State& state) {
    jsoncppAlone(state, kLeaf);
}

BENCHMARK(BM_RootThroughTree);
BENCHMARK(BM_RootJsoncppAlone);
BENCHMARK(BM_LeafThroughTree);
BENCHMARK(BM_LeafJsoncppAlone);

}  // namespace

BENCHMARK_MAIN();
