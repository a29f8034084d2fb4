#include "app/service_tree.h"

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

// Views are built afresh on every request, so their closures stay small: the engine's pointer and
// an index, or one shared_ptr to what was made once when the tree was built (names, type records,
// child factories, the board record), never a copy of it.

// Every leaf takes writes and drops them: nothing written through the tree reaches the engine.
// `Get` is a small callable returning T.
template <typename T, typename Get>
ObjectFactory leaf(Get get) {
    return [get]() -> std::unique_ptr<IAbstractObject> {
        return av::GetVariable_Impl<T>(
            get, [](const T&) {}, av::leafType<T>());
    };
}

// A value fixed when the tree was built.
template <typename T>
ObjectFactory constant(std::shared_ptr<const T> value) {
    return leaf<T>([value] { return *value; });
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

template <typename Get>
ObjectFactory enumView(Get code, std::shared_ptr<const NamedCodes> names,
                       const std::shared_ptr<const AbstractType>& type) {
    struct Enum {
        Get code;
        std::shared_ptr<const NamedCodes> names;
        av::TypeFunction<EnumType> type;
    };
    auto shared =
        std::make_shared<const Enum>(Enum{code, std::move(names), av::recordFunction<EnumType>(type)});
    return [shared]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<av::EnumVarDeclImpl>(
            [shared] {
                return av::GetVariable_Impl<std::int32_t>(
                    shared->code, [](const std::int32_t&) {}, av::leafType<std::int32_t>());
            },
            [shared]() -> std::shared_ptr<const av::IEnumDecl> { return shared->names; }, shared->type);
    };
}

ObjectFactory structView(CDynStruct::Children children, const std::shared_ptr<const AbstractType>& type) {
    auto view = std::make_shared<const CDynStruct>(std::move(children), av::recordFunction<StructType>(type));
    return [view]() -> std::unique_ptr<IAbstractObject> { return std::make_unique<CDynStruct>(*view); };
}

void checkAlternative(const std::string& name) {
    if (name != kAvailableInput && name != kUnavailableInput) {
        throw av::AbstractVariableException("Invalid union type");
    }
}

// A format as a union: a code of the table stands under AVAILABLE_SDI_INPUT, anything else
// (no engine, no signal) under UNAVAILABLE_SDI_INPUT; both hold the struct with Standard.
template <typename Get>
ObjectFactory formatView(Get code, const TreeTypes& types) {
    struct Format {
        Get code;
        ObjectFactory standardStruct;
        av::TypeFunction<UnionType> type;
    };
    auto shared = std::make_shared<const Format>(Format{
        code,
        structView({{"Standard", enumView(code, videoStandardNames(), types.standard)}}, types.formatStruct),
        av::recordFunction<UnionType>(types.formatUnion)});
    return [shared]() -> std::unique_ptr<IAbstractObject> {
        return std::make_unique<av::UnionImpl>(
            [shared] {
                return std::string(sdi::formatName(shared->code()) ? kAvailableInput : kUnavailableInput);
            },
            [](const std::string& name) { checkAlternative(name); },
            [shared](const std::string& name) {
                checkAlternative(name);
                return shared->standardStruct;
            },
            shared->type);
    };
}

// A vector of fixed size over factories made once; another size fails with "Cannot resize
// vector", an index outside with "invalid vector<T> subscript".
ObjectFactory fixedVector(std::vector<ObjectFactory> elements,
                          const std::shared_ptr<const AbstractType>& type) {
    struct Vector {
        std::vector<ObjectFactory> elements;
        av::TypeFunction<VectorType> type;
    };
    auto shared =
        std::make_shared<const Vector>(Vector{std::move(elements), av::recordFunction<VectorType>(type)});
    return [shared]() -> std::unique_ptr<IAbstractObject> {
        const auto size = static_cast<std::int32_t>(shared->elements.size());
        return std::make_unique<av::VectorImpl>(
            [size] { return size; }, [size](std::int32_t) { return size; },
            [shared](std::int32_t index) {
                if (index < 0 || static_cast<std::size_t>(index) >= shared->elements.size()) {
                    throw std::out_of_range("invalid vector<T> subscript");
                }
                return shared->elements[static_cast<std::size_t>(index)];
            },
            shared->type);
    };
}

ObjectFactory audioSamplingView(const CaptureState* engine, const TreeTypes& types) {
    std::vector<ObjectFactory> pairs;
    for (std::size_t index = 0; index < kAudioStatisticPairs; ++index) {
        auto status = [engine, index] { return engine ? engine->audioStatistic(index).detectedSampling : 0; };
        auto rate = [engine, index] { return engine ? engine->audioStatistic(index).percent : 0; };
        pairs.push_back(
            structView({{"ChannelStatus", enumView(status, audioPairSamplingNames(), types.sampling)},
                        {"DataRate", leaf<std::int32_t>(rate)}},
                       types.pair));
    }
    return fixedVector(std::move(pairs), types.audioVector);
}

ObjectFactory quadrantsView(const CaptureState* engine, const TreeTypes& types) {
    std::vector<ObjectFactory> quadrants;
    for (std::size_t index = 0; index < kQuadrantCount; ++index) {
        quadrants.push_back(formatView(
            [engine, index] { return engine ? engine->quadrantFormat(index) : std::int32_t{sdi::NO_FORMAT}; },
            types));
    }
    return fixedVector(std::move(quadrants), types.quadrantVector);
}

// One copy of the record, made when the tree is built, behind every leaf.
ObjectFactory boardInfoView(const BoardInfo& info, const TreeTypes& types) {
    const auto record = std::make_shared<const BoardInfo>(info);
    auto field = [&record](const auto& member) { return constant(av::partOf(record, &member)); };
    // The record says the board's type by number; the tree by name, and empty where the board
    // query found no properties.
    auto boardType = std::make_shared<const std::string>(
        info.PropertiesValid ? system::sdi::deltacast_io::v1::boardTypeName(info.BoardType) : "");
    const ObjectFactory properties = structView({{"DriverVersion", field(record->DriverVersion)},
                                                 {"FirmwareVersion", field(record->FirmwareVersion)},
                                                 {"FirmwareReleaseDate", field(record->FirmwareReleaseDate)},
                                                 {"BoardType", constant(std::move(boardType))},
                                                 {"IsPCIExpress", field(record->IsPCIExpress)},
                                                 {"NumRXchannels", field(record->NumRXchannels)},
                                                 {"NumTXchannels", field(record->NumTXchannels)}},
                                                types.properties);
    return structView({{"ApiAvailable", field(record->ApiAvailable)},
                       {"NbSdiBoard", field(record->NbSdiBoard)},
                       {"ApiVersion", field(record->ApiVersion)},
                       {"PropertiesValid", field(record->PropertiesValid)},
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
