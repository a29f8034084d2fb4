#include "app/service_tree.h"

#include <array>
#include <functional>
#include <stdexcept>
#include <utility>

#include "config/abstract_variable/declaration.h"
#include "config/abstract_variable/object_construction.h"
#include "encoding/sdi/sdi_common.h"

namespace ovtx::app::sdi_tap::v1 {

namespace {

namespace av = config::abstract_variable::lib_abstract_variable::v2;
using av::AbstractType;
using av::CDynStruct;
using av::EnumType;
using av::IAbstractObject;
using av::ObjectFactory;
using av::StructType;
using av::UnionType;
using av::VariableType;
using av::VectorType;
using system::sdi::deltacast_io::v1::BoardInfo;
namespace sdi = encoding::sdi::sdi_common::v2;

constexpr std::int32_t kAudioPairs = static_cast<std::int32_t>(kAudioStatisticPairs);
constexpr std::int32_t kQuadrants = static_cast<std::int32_t>(kQuadrantCount);

using Int32Getter = std::function<std::int32_t()>;

// Every leaf takes writes and drops them: nothing written through the tree reaches the engine.
template <typename T>
ObjectFactory leaf(std::function<T()> get) {
    return [get = std::move(get)]() -> std::unique_ptr<IAbstractObject> {
        return av::GetVariable_Impl<T>(
            get, [](const T&) {}, av::leafType<T>());
    };
}

template <typename T>
ObjectFactory constant(T value) {
    return leaf<T>([value] { return value; });
}

EnumType enumTypeOf(const NamedCodes& names) {
    EnumType type;
    for (std::int32_t code : names.values()) {
        type.choices.push_back(names.toString(code));
    }
    return type;
}

// The type records of the tree, made once per tree and shared by its views.
struct TreeTypes {
    std::shared_ptr<const AbstractType> standard;
    std::shared_ptr<const AbstractType> formatStruct;
    std::shared_ptr<const AbstractType> formatUnion;
    std::shared_ptr<const AbstractType> sampling;
    std::shared_ptr<const AbstractType> pair;
    std::shared_ptr<const AbstractType> audioVector;
    std::shared_ptr<const AbstractType> quadrantVector;
    std::shared_ptr<const AbstractType> properties;
    std::shared_ptr<const AbstractType> boardInfo;
    std::shared_ptr<const AbstractType> root;

    explicit TreeTypes(bool fourHdQuads) {
        standard = make(enumTypeOf(*videoStandardNames()));
        formatStruct = make(StructType{{{"Standard", *standard}}});
        formatUnion =
            make(UnionType{{{kAvailableInput, *formatStruct}, {kUnavailableInput, *formatStruct}}, false});
        sampling = make(enumTypeOf(*audioPairSamplingNames()));
        pair = make(StructType{{{"ChannelStatus", *sampling}, {"DataRate", VariableType<std::int32_t>{}}}});
        audioVector = make(VectorType{*pair});
        quadrantVector = make(VectorType{*formatUnion});
        properties = make(StructType{{{"DriverVersion", VariableType<std::string>{}},
                                      {"FirmwareVersion", VariableType<std::string>{}},
                                      {"FirmwareReleaseDate", VariableType<std::string>{}},
                                      {"BoardType", VariableType<std::string>{}},
                                      {"IsPCIExpress", VariableType<bool>{}},
                                      {"NumRXchannels", VariableType<std::int32_t>{}},
                                      {"NumTXchannels", VariableType<std::int32_t>{}}}});
        boardInfo = make(StructType{{{"ApiAvailable", VariableType<bool>{}},
                                     {"NbSdiBoard", VariableType<std::int32_t>{}},
                                     {"ApiVersion", VariableType<std::string>{}},
                                     {"PropertiesValid", VariableType<bool>{}},
                                     {"Properties", *properties}}});
        StructType rootRecord{{{"InputVideoFormat", *formatUnion}, {"AudioSampling", *audioVector}}};
        if (fourHdQuads) {
            rootRecord.children.push_back({"QuadrantsVideoFormat", *quadrantVector});
        }
        rootRecord.children.push_back({"BoardInfo", *boardInfo});
        root = make(std::move(rootRecord));
    }

    template <typename Record>
    static std::shared_ptr<const AbstractType> make(Record record) {
        return std::make_shared<const AbstractType>(std::move(record));
    }
};

ObjectFactory enumView(Int32Getter code, std::shared_ptr<const NamedCodes> names,
                       const std::shared_ptr<const AbstractType>& type) {
    av::TypedFactory<av::IVariable<std::int32_t>> number = [code = std::move(code)] {
        return av::GetVariable_Impl<std::int32_t>(
            code, [](const std::int32_t&) {}, av::leafType<std::int32_t>());
    };
    av::EnumDeclFactory decl = [names = std::move(names)] { return names; };
    av::TypeFunction<EnumType> typeFunction = av::recordFunction<EnumType>(type);
    return [number, decl, typeFunction]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<av::EnumVarDeclImpl>(number, decl, typeFunction);
    };
}

void checkAlternative(const std::string& name) {
    if (name != kAvailableInput && name != kUnavailableInput) {
        throw av::AbstractVariableException("Invalid union type");
    }
}

// A format as a union: a code of the table stands under AVAILABLE_SDI_INPUT, anything else
// (no engine, no signal) under UNAVAILABLE_SDI_INPUT; both hold the struct with Standard.
ObjectFactory formatView(Int32Getter code, const TreeTypes& types) {
    const ObjectFactory standardStruct =
        CDynStruct({{"Standard", enumView(code, videoStandardNames(), types.standard)}},
                   av::recordFunction<StructType>(types.formatStruct))
            .factory();
    av::TypeFunction<UnionType> typeFunction = av::recordFunction<UnionType>(types.formatUnion);
    return [code = std::move(code), standardStruct, typeFunction]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<av::UnionImpl>(
            [code] { return sdi::formatName(code()) ? kAvailableInput : kUnavailableInput; },
            [](const std::string& name) { checkAlternative(name); },
            [standardStruct](const std::string& name) {
                checkAlternative(name);
                return standardStruct;
            },
            typeFunction);
    };
}

// A vector of fixed size over factories made once; another size fails with "Cannot resize
// vector", an index outside with "invalid vector<T> subscript".
ObjectFactory fixedVector(std::vector<ObjectFactory> elements,
                          const std::shared_ptr<const AbstractType>& type) {
    auto shared = std::make_shared<const std::vector<ObjectFactory>>(std::move(elements));
    av::TypeFunction<VectorType> typeFunction = av::recordFunction<VectorType>(type);
    return [shared, typeFunction]() -> std::unique_ptr<IAbstractObject> {
        const auto size = static_cast<std::int32_t>(shared->size());
        return std::make_unique<av::VectorImpl>(
            [size] { return size; }, [size](std::int32_t) { return size; },
            [shared](std::int32_t index) {
                if (index < 0 || static_cast<std::size_t>(index) >= shared->size()) {
                    throw std::out_of_range("invalid vector<T> subscript");
                }
                return (*shared)[static_cast<std::size_t>(index)];
            },
            typeFunction);
    };
}

ObjectFactory structView(CDynStruct::Children children, const std::shared_ptr<const AbstractType>& type) {
    return CDynStruct(std::move(children), av::recordFunction<StructType>(type)).factory();
}

ObjectFactory audioSamplingView(const CaptureState* engine, const TreeTypes& types) {
    std::vector<ObjectFactory> pairs;
    for (std::int32_t pair = 0; pair < kAudioPairs; ++pair) {
        const auto index = static_cast<std::size_t>(pair);
        Int32Getter status = [engine, index] {
            return engine ? engine->audioStatistic(index).detectedSampling : 0;
        };
        Int32Getter rate = [engine, index] { return engine ? engine->audioStatistic(index).percent : 0; };
        pairs.push_back(
            structView({{"ChannelStatus", enumView(status, audioPairSamplingNames(), types.sampling)},
                        {"DataRate", leaf<std::int32_t>(rate)}},
                       types.pair));
    }
    return fixedVector(std::move(pairs), types.audioVector);
}

ObjectFactory quadrantsView(const CaptureState* engine, const TreeTypes& types) {
    std::vector<ObjectFactory> quadrants;
    for (std::int32_t quadrant = 0; quadrant < kQuadrants; ++quadrant) {
        const auto index = static_cast<std::size_t>(quadrant);
        quadrants.push_back(formatView(
            [engine, index] { return engine ? engine->quadrantFormat(index) : std::int32_t{sdi::NO_FORMAT}; },
            types));
    }
    return fixedVector(std::move(quadrants), types.quadrantVector);
}

ObjectFactory boardInfoView(const BoardInfo& info, const TreeTypes& types) {
    // The record says the board's type by number; the tree by name, and empty where the board
    // query found no properties.
    const std::string boardType =
        info.PropertiesValid ? system::sdi::deltacast_io::v1::boardTypeName(info.BoardType) : "";
    const ObjectFactory properties = structView({{"DriverVersion", constant(info.DriverVersion)},
                                                 {"FirmwareVersion", constant(info.FirmwareVersion)},
                                                 {"FirmwareReleaseDate", constant(info.FirmwareReleaseDate)},
                                                 {"BoardType", constant(boardType)},
                                                 {"IsPCIExpress", constant(info.IsPCIExpress)},
                                                 {"NumRXchannels", constant(info.NumRXchannels)},
                                                 {"NumTXchannels", constant(info.NumTXchannels)}},
                                                types.properties);
    return structView({{"ApiAvailable", constant(info.ApiAvailable)},
                       {"NbSdiBoard", constant(info.NbSdiBoard)},
                       {"ApiVersion", constant(info.ApiVersion)},
                       {"PropertiesValid", constant(info.PropertiesValid)},
                       {"Properties", properties}},
                      types.boardInfo);
}

}  // namespace

NamedCodes::NamedCodes(std::vector<Entry> entries) : m_entries(std::move(entries)) {
    for (const Entry& entry : m_entries) {
        m_values.push_back(entry.code);
    }
}

std::int32_t NamedCodes::fromString(const std::string& text) const {
    for (const Entry& entry : m_entries) {
        if (text == entry.name || text == std::to_string(entry.code)) {
            return entry.code;
        }
    }
    throw std::runtime_error("Invalid enum choice");
}

std::string NamedCodes::toString(std::int32_t value) const {
    for (const Entry& entry : m_entries) {
        if (entry.code == value) {
            return entry.name;
        }
    }
    throw std::runtime_error("Invalid enum choice");
}

std::shared_ptr<const NamedCodes> videoStandardNames() {
    static const auto kNames = [] {
        std::vector<NamedCodes::Entry> entries;
        for (const sdi::FormatTableRow& row : sdi::formatTable()) {
            entries.push_back({row.code, std::string(row.name)});
        }
        entries.push_back({sdi::NO_FORMAT, "NO_FORMAT"});
        return std::make_shared<const NamedCodes>(std::move(entries));
    }();
    return kNames;
}

std::shared_ptr<const NamedCodes> audioPairSamplingNames() {
    static const auto kNames = std::make_shared<const NamedCodes>(
        std::vector<NamedCodes::Entry>{{0, ""}, {1, "48KHZ"}, {2, "44.1KHZ"}, {3, "32KHZ"}, {4, "NO_AUDIO"}});
    return kNames;
}

ObjectFactory buildServiceTree(const CaptureState* engine, bool fourHdQuads, const BoardInfo& boardInfo) {
    const TreeTypes types(fourHdQuads);
    CDynStruct::Children children{
        {"InputVideoFormat",
         formatView([engine] { return engine ? engine->detectedFormat() : std::int32_t{sdi::NO_FORMAT}; },
                    types)},
        {"AudioSampling", audioSamplingView(engine, types)}};
    if (fourHdQuads) {
        children.emplace_back("QuadrantsVideoFormat", quadrantsView(engine, types));
    }
    children.emplace_back("BoardInfo", boardInfoView(boardInfo, types));
    return structView(std::move(children), types.root);
}

}  // namespace ovtx::app::sdi_tap::v1
