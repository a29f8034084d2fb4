// JSON values of a large tree: serialising and unserialising through the variable layer, beside
// jsoncpp alone writing and parsing the same document (the floor that this layer adds to).
//
// The styled text that REST answers carry, written straight from the walk, is compared with
// jsoncpp's StyledWriter writing the JSON value made beforehand (and checked to be the same bytes).
//
// The tree: a constructable map of 10,000 elements, each with a configuration {Name} and a state
// of twelve leaves, and a data object of 10 MB. Each figure is the best of several runs.
#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "bench/large_tree.h"
#include "config/abstract_variable/declaration.h"
#include "config/abstract_variable/value_json.h"

namespace {

using namespace ovtx::config::abstract_variable::lib_abstract_variable::v2;
using ovtx::cpp_utils::constructable_object_map::v2::ConstructableObjectMap;

using namespace ovtx::bench::large_tree;

constexpr int kRuns = 5;

// Best wall time of `kRuns` runs, in milliseconds; `cpuMs`, when given, receives the processor time
// of the process in that run, which tells a busy machine from a loop that does not spread.
double bestMs(const std::function<void()>& run, double* cpuMs = nullptr) {
    double best = 1e300;
    for (int count = 0; count < kRuns; ++count) {
        const std::clock_t cpuStart = std::clock();
        const auto start = std::chrono::steady_clock::now();
        run();
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
        if (elapsed.count() < best) {
            best = elapsed.count();
            if (cpuMs != nullptr) {
                *cpuMs = 1000.0 * static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC;
            }
        }
    }
    return best;
}

std::string write(const Json::Value& value) {
    Json::StreamWriterBuilder builder;  // indented, as the REST answers are
    return Json::writeString(builder, value);
}

Json::Value parse(const std::string& text) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
        std::fprintf(stderr, "parse failed: %s\n", errors.c_str());
    }
    return value;
}

// The same elements in a plain std::map whose view adds without looking for an equal
// configuration: the cost of the JSON layer itself, without the map's uniqueness scan.
struct PlainElements {
    std::mutex mutex;
    std::map<std::int32_t, std::pair<std::shared_ptr<Config>, std::shared_ptr<State>>> elements;
};

ObjectFactory plainMapView(const std::shared_ptr<PlainElements>& data, const AbstractType& type) {
    const auto config = configDeclaration();
    const auto state = stateDeclaration();
    const TypeFunction<ConstructableObjectMapType> typeFunction =
        constantType(type.get<ConstructableObjectMapType>());
    const TypeFunction<ReadOnlyType> readOnlyType = constantType(ReadOnlyType{config.type()});
    auto add = [data, config](std::int32_t id, IAbstractObject& object) {
        auto native = std::make_shared<Config>();
        copyValue(object, *config.view(native), config.type());
        std::lock_guard lock(data->mutex);
        data->elements[id] = {native, std::make_shared<State>()};
    };
    return [=]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<CConstructableObjectMap>(
            [data] {
                std::lock_guard lock(data->mutex);
                std::vector<std::int32_t> ids;
                for (const auto& entry : data->elements) {
                    ids.push_back(entry.first);
                }
                return ids;
            },
            [data, config, state, readOnlyType](std::int32_t id) {
                std::lock_guard lock(data->mutex);
                const auto& [configuration, element] = data->elements.at(id);
                TypedFactory<IReadOnly> configView = [config, configuration, readOnlyType] {
                    return std::make_unique<ReadOnlyImpl>(
                        [config, configuration] { return config.factory(configuration); }, readOnlyType);
                };
                return ConstructableElement(configView, state.factory(element));
            },
            [config] { return config.factory(std::make_shared<Config>()); }, add,
            [data, add](IAbstractObject& object) {
                const std::int32_t id = static_cast<std::int32_t>(data->elements.size());
                add(id, object);
                return id;
            },
            [data](std::int32_t id) {
                std::lock_guard lock(data->mutex);
                data->elements.erase(id);
            },
            typeFunction, true);
    };
}

struct Part {
    const char* name;
    const AbstractType* type;
    ObjectFactory source;
    ObjectFactory target;
};

void measure(const Part& part) {
    Json::Value value;
    const double serialise =
        bestMs([&] { value = SerializeValueToJson(part.source().get(), *part.type, {}); });
    std::string text;
    const double jsonWrite = bestMs([&] { text = write(value); });
    Json::Value parsed;
    const double jsonParse = bestMs([&] { parsed = parse(text); });
    double serialCpu = 0;
    const double serial = bestMs(
        [&] { UnserializeValueFromJson(parsed, part.target().get(), *part.type, false, false); }, &serialCpu);
    double parallelCpu = 0;
    const double parallel =
        bestMs([&] { UnserializeValueFromJson(parsed, part.target().get(), *part.type, false, true); },
               &parallelCpu);

    std::string styled;
    const double styledWrite = bestMs([&] { styled = Json::StyledWriter().write(value); });
    std::string direct;
    const double directText =
        bestMs([&] { direct = SerializeValueToStyledJson(part.source().get(), *part.type, {}); });
    if (direct != styled) {
        std::fprintf(stderr, "json_bench: %s: the styled text differs from jsoncpp's\n", part.name);
        std::exit(1);
    }

    std::printf("%-28s document %6.1f MB\n", part.name, static_cast<double>(text.size()) / 1e6);
    std::printf("  serialise            %8.1f ms   jsoncpp write %8.1f ms   ratio %5.2f\n", serialise,
                jsonWrite, serialise / jsonWrite);
    std::printf("  unserialise serial   %8.1f ms   jsoncpp parse %8.1f ms   ratio %5.2f   (cpu %.1f ms)\n",
                serial, jsonParse, serial / jsonParse, serialCpu);
    std::printf("  unserialise parallel %8.1f ms   speed-up %5.2f           ratio %5.2f   (cpu %.1f ms)\n",
                parallel, serial / parallel, parallel / jsonParse, parallelCpu);
    std::printf("  read as text  (serialise + write) %8.1f ms = %5.2f x jsoncpp write alone\n",
                serialise + jsonWrite, (serialise + jsonWrite) / jsonWrite);
    std::printf(
        "  styled text straight from the walk %8.1f ms = %5.2f x jsoncpp StyledWriter alone (%.1f ms)\n",
        directText, directText / styledWrite, styledWrite);
    std::printf("  write from text (parse + unserialise parallel) %8.1f ms = %5.2f x jsoncpp parse alone\n",
                jsonParse + parallel, (jsonParse + parallel) / jsonParse);
}

}  // namespace

int main() {
    const Declaration<Tree> declaration = treeDeclaration();
    auto source = makeTree();
    auto target = std::make_shared<Tree>();
    const ObjectFactory sourceRoot = declaration.factory(source);
    const ObjectFactory targetRoot = declaration.factory(target);
    const auto child = [](const ObjectFactory& root, const char* name) {
        return convertTo<IStruct>(root)->getChild(name);
    };
    const auto& children = declaration.type().get<StructType>().children;

    std::printf(
        "json_bench: %d map elements of 12 leaves, %zu bytes of data, %u processors, best of %d runs\n",
        kElements, kDataBytes, std::thread::hardware_concurrency(), kRuns);
    measure({"constructable map", &*children[0].type, child(sourceRoot, "Elements"),
             child(targetRoot, "Elements")});
    measure({"data object", &*children[1].type, child(sourceRoot, "Blob"), child(targetRoot, "Blob")});
    measure({"whole tree", &declaration.type(), sourceRoot, targetRoot});
    auto plain = std::make_shared<PlainElements>();
    measure({"map without uniqueness scan", &*children[0].type, child(sourceRoot, "Elements"),
             plainMapView(plain, *children[0].type)});

    if (target->elements.ids().size() != static_cast<std::size_t>(kElements) ||
        target->blob != source->blob) {
        std::fprintf(stderr, "json_bench: the unserialised tree differs from the source\n");
        return 1;
    }
    return 0;
}
