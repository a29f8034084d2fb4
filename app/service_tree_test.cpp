// The service tree read and written through the variable layer, over a fake engine state.
#include "app/service_tree.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <array>
#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/abstract_variable/value_json.h"
#include "config/abstract_variable/variable_path.h"
#include "config/abstract_variable/visitors.h"
#include "testing/expect_failure.h"

namespace {

namespace av = ovtx::config::abstract_variable::lib_abstract_variable::v2;
using ovtx::app::sdi_tap::v1::AudioPairStatistic;
using ovtx::app::sdi_tap::v1::buildServiceTree;
using ovtx::app::sdi_tap::v1::CaptureState;
using ovtx::system::sdi::deltacast_io::v1::BoardInfo;
using ovtx::test_support::v1::expectFailure;

class FakeCaptureState : public CaptureState {
  public:
    std::int32_t detectedFormat() const override { return format; }
    std::int32_t quadrantFormat(std::size_t quadrant) const override { return quadrants.at(quadrant); }
    AudioPairStatistic audioStatistic(std::size_t pair) const override { return statistics.at(pair); }

    std::atomic<std::int32_t> format{-1};
    std::array<std::int32_t, 4> quadrants{-1, -1, -1, -1};
    std::array<AudioPairStatistic, 8> statistics{};
};

BoardInfo boardWithProperties() {
    BoardInfo info;
    info.ApiAvailable = true;
    info.NbSdiBoard = 1;
    info.ApiVersion = "6.13.0";
    info.PropertiesValid = true;
    info.DriverVersion = "6.13.2";
    info.FirmwareVersion = "1b";
    info.FirmwareReleaseDate = "2024/05/17";
    info.BoardType = 6;
    info.IsPCIExpress = true;
    info.NumRXchannels = 4;
    info.NumTXchannels = 0;
    return info;
}

Json::Value read(const av::ObjectFactory& root, const std::vector<std::string>& path = {}) {
    const std::unique_ptr<av::IAbstractObject> object = av::FindObjectAtPath(root, path)();
    return av::SerializeValueToJson(object.get(), av::getObjectType(*object), {});
}

Json::Value format(const std::string& alternative, const std::string& standard) {
    Json::Value value;
    value["_type_"] = alternative;
    value["_value_"][alternative]["Standard"] = standard;
    return value;
}

class ServiceTreeTest : public ::testing::Test {
  protected:
    FakeCaptureState m_engine;
};

TEST_F(ServiceTreeTest, PatternRun_ReadsNoFormatNoAudioAndTheBoardQuery) {
    BoardInfo noBoard;
    noBoard.ApiVersion = "0.0.0";
    const Json::Value tree = read(buildServiceTree(nullptr, false, noBoard));

    EXPECT_EQ(tree.getMemberNames(),
              (std::vector<std::string>{"AudioSampling", "BoardInfo", "InputVideoFormat"}));
    EXPECT_EQ(tree["InputVideoFormat"], format("UNAVAILABLE_SDI_INPUT", "NO_FORMAT"));
    ASSERT_EQ(tree["AudioSampling"].size(), 8u);
    for (const Json::Value& pair : tree["AudioSampling"]) {
        EXPECT_EQ(pair["ChannelStatus"], "");
        EXPECT_EQ(pair["DataRate"], 0);
    }
    EXPECT_EQ(tree["BoardInfo"]["ApiAvailable"], false);
    EXPECT_EQ(tree["BoardInfo"]["ApiVersion"], "0.0.0");
    EXPECT_EQ(tree["BoardInfo"]["Properties"]["BoardType"], "");
}

TEST_F(ServiceTreeTest, FormatCodes_StandUnderTheirAlternative) {
    const struct {
        std::int32_t code;
        const char* alternative;
        const char* standard;
    } cases[] = {
        {-1, "UNAVAILABLE_SDI_INPUT", "NO_FORMAT"},
        {0, "AVAILABLE_SDI_INPUT", "PAL_720_576i_50"},
        {3, "AVAILABLE_SDI_INPUT", "HD_1920_1080p_25"},
        {14, "AVAILABLE_SDI_INPUT", "3G_1920_1080p_60"},
        {101, "AVAILABLE_SDI_INPUT", "4_HD_1920_1080p_23_98"},
    };
    const av::ObjectFactory root = buildServiceTree(&m_engine, false, boardWithProperties());
    for (const auto& entry : cases) {
        m_engine.format = entry.code;
        EXPECT_EQ(read(root, {"InputVideoFormat"}), format(entry.alternative, entry.standard)) << entry.code;
        EXPECT_EQ(read(root, {"InputVideoFormat", "_type_"}), entry.alternative);
    }
    // The path to the value follows the current alternative.
    m_engine.format = 9;
    EXPECT_EQ(read(root, {"InputVideoFormat", "_value_", "AVAILABLE_SDI_INPUT", "Standard"}),
              "3G_1920_1080p_50");
    expectFailure(
        [&] {
            read(root, {"InputVideoFormat", "_value_", "UNAVAILABLE_SDI_INPUT"});
        },
        "Invalid type value in URL : InputVideoFormat/_value_/UNAVAILABLE_SDI_INPUT. Current type is "
        "AVAILABLE_SDI_INPUT");
}

TEST_F(ServiceTreeTest, CodesWithoutName_FailWithTheEnumText) {
    const av::ObjectFactory root = buildServiceTree(&m_engine, false, boardWithProperties());
    m_engine.format = 1;  // no format: unavailable, and its Standard has no name
    expectFailure([&] { read(root, {"InputVideoFormat"}); }, "Invalid enum choice");
    m_engine.statistics[2] = {5, 0};
    expectFailure([&] { read(root, {"AudioSampling", "3", "ChannelStatus"}); }, "Invalid enum choice");
}

TEST_F(ServiceTreeTest, AudioPairs_ShowTheEngineStatisticsByName) {
    const av::ObjectFactory root = buildServiceTree(&m_engine, false, boardWithProperties());
    const std::array<const char*, 5> names = {"", "48KHZ", "44.1KHZ", "32KHZ", "NO_AUDIO"};
    for (std::size_t pair = 0; pair < 8; ++pair) {
        m_engine.statistics[pair] = {static_cast<std::int32_t>(pair % 5),
                                     static_cast<std::int32_t>(90 + pair)};
    }
    const Json::Value pairs = read(root, {"AudioSampling"});
    ASSERT_EQ(pairs.size(), 8u);
    for (Json::ArrayIndex pair = 0; pair < 8; ++pair) {
        EXPECT_EQ(pairs[pair]["ChannelStatus"], names[pair % 5]) << pair;
        EXPECT_EQ(pairs[pair]["DataRate"], static_cast<int>(90 + pair)) << pair;
    }
    // Path indices count from 1, and every read sees the engine as it is now.
    m_engine.statistics[7] = {3, 77};
    EXPECT_EQ(read(root, {"AudioSampling", "8", "DataRate"}), 77);
    EXPECT_EQ(read(root, {"AudioSampling", "8", "ChannelStatus"}), "32KHZ");
}

TEST_F(ServiceTreeTest, FixedVectors_RefuseOtherSizesAndIndices) {
    const av::ObjectFactory root = buildServiceTree(&m_engine, true, boardWithProperties());
    for (const auto& [name, size] : {std::pair{"AudioSampling", 8}, std::pair{"QuadrantsVideoFormat", 4}}) {
        auto vector = av::convertTo<av::IVector>(av::FindObjectAtPath(root, {name}));
        EXPECT_EQ(vector->size(), size);
        vector->resize(size);
        expectFailure([&] { vector->resize(size + 1); }, "Cannot resize vector");
        expectFailure([&] { vector->get(size); }, "invalid vector<T> subscript");
        expectFailure([&] { vector->get(-1); }, "invalid vector<T> subscript");
    }
}

TEST_F(ServiceTreeTest, FourHdQuads_AddsTheQuadrantFormatsBeforeBoardInfo) {
    m_engine.format = 102;
    m_engine.quadrants = {3, 3, -1, 3};
    const Json::Value tree = read(buildServiceTree(&m_engine, true, boardWithProperties()));
    EXPECT_EQ(tree["InputVideoFormat"], format("AVAILABLE_SDI_INPUT", "4_HD_1920_1080p_25"));
    ASSERT_EQ(tree["QuadrantsVideoFormat"].size(), 4u);
    EXPECT_EQ(tree["QuadrantsVideoFormat"][0], format("AVAILABLE_SDI_INPUT", "HD_1920_1080p_25"));
    EXPECT_EQ(tree["QuadrantsVideoFormat"][2], format("UNAVAILABLE_SDI_INPUT", "NO_FORMAT"));

    const av::ObjectFactory root = buildServiceTree(&m_engine, true, boardWithProperties());
    const auto type = av::getObjectType(*root()).get<av::StructType>();
    std::vector<std::string> children;
    for (const auto& child : type.children) {
        children.push_back(child.name);
    }
    EXPECT_EQ(children, (std::vector<std::string>{"InputVideoFormat", "AudioSampling", "QuadrantsVideoFormat",
                                                  "BoardInfo"}));
    // A pattern run in four-quadrant mode has no format in any quadrant.
    EXPECT_EQ(read(buildServiceTree(nullptr, true, {}), {"QuadrantsVideoFormat", "4"}),
              format("UNAVAILABLE_SDI_INPUT", "NO_FORMAT"));
}

TEST_F(ServiceTreeTest, OneInput_HasNoQuadrants) {
    const av::ObjectFactory root = buildServiceTree(&m_engine, false, boardWithProperties());
    expectFailure(
        [&] {
            read(root, {"QuadrantsVideoFormat", "1"});
        },
        "No such variable: QuadrantsVideoFormat");
    expectFailure([&] { av::FindTypeAtPath(av::getObjectType(*root()), {"QuadrantsVideoFormat"}, true); },
                  "QuadrantsVideoFormat is not a valid value in this Struct");
}

TEST_F(ServiceTreeTest, BoardInfo_IsTheRecordAsBuilt) {
    BoardInfo info = boardWithProperties();
    const av::ObjectFactory root = buildServiceTree(&m_engine, false, info);
    info.NumRXchannels = 8;  // the tree keeps its own copy
    Json::Value expected;
    expected["ApiAvailable"] = true;
    expected["NbSdiBoard"] = 1;
    expected["ApiVersion"] = "6.13.0";
    expected["PropertiesValid"] = true;
    Json::Value& properties = expected["Properties"];
    properties["DriverVersion"] = "6.13.2";
    properties["FirmwareVersion"] = "1b";
    properties["FirmwareReleaseDate"] = "2024/05/17";
    properties["BoardType"] = "3G board";
    properties["IsPCIExpress"] = true;
    properties["NumRXchannels"] = 4;
    properties["NumTXchannels"] = 0;
    EXPECT_EQ(read(root, {"BoardInfo"}), expected);
}

TEST_F(ServiceTreeTest, Writes_SucceedAndChangeNothing) {
    m_engine.format = 3;
    m_engine.statistics[0] = {1, 100};
    const av::ObjectFactory root = buildServiceTree(&m_engine, true, boardWithProperties());
    const Json::Value before = read(root);

    av::convertTo<av::IEnum>(av::FindObjectAtPath(root, {"AudioSampling", "1", "ChannelStatus"}))
        ->set("NO_AUDIO");
    av::convertTo<av::IEnum>(
        av::FindObjectAtPath(root, {"InputVideoFormat", "_value_", "AVAILABLE_SDI_INPUT", "Standard"}))
        ->set("PAL_720_576i_50");
    av::convertTo<av::IUnion>(av::FindObjectAtPath(root, {"InputVideoFormat"}))
        ->setCurrentType("UNAVAILABLE_SDI_INPUT");
    // The whole tree written back, with every value changed.
    Json::Value changed = before;
    changed["AudioSampling"][1]["DataRate"] = 5;
    changed["BoardInfo"]["Properties"]["BoardType"] = "SD board";
    const std::unique_ptr<av::IAbstractObject> object = root();
    EXPECT_EQ(av::UnserializeValueFromJson(changed, object.get(), av::getObjectType(*object), false, false),
              "");

    EXPECT_EQ(read(root), before);
    EXPECT_EQ(m_engine.format, 3);
    // A name outside the enum or the union is still refused.
    expectFailure(
        [&] {
            av::convertTo<av::IEnum>(av::FindObjectAtPath(root, {"AudioSampling", "1", "ChannelStatus"}))
                ->set("96KHZ");
        },
        "Invalid enum choice");
    expectFailure(
        [&] {
            av::convertTo<av::IUnion>(av::FindObjectAtPath(root, {"InputVideoFormat"}))->setCurrentType("X");
        },
        "Invalid union type");
}

TEST(NamedCodesTest, NamesAndDecimalCodes_AreBothAccepted) {
    const auto names = ovtx::app::sdi_tap::v1::audioPairSamplingNames();
    EXPECT_EQ(names->fromString(""), 0);
    EXPECT_EQ(names->fromString("44.1KHZ"), 2);
    EXPECT_EQ(names->fromString("2"), 2);
    EXPECT_EQ(names->toString(2), "44.1KHZ");
    expectFailure([&] { names->fromString("5"); }, "Invalid enum choice");
    const auto standards = ovtx::app::sdi_tap::v1::videoStandardNames();
    EXPECT_EQ(standards->fromString("-1"), -1);
    EXPECT_EQ(standards->fromString("HD_1280_720p_60"), 13);
}

}  // namespace
