#include "system/sdi/deltacast_io/device_api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace ovtx::system::sdi::deltacast_io::v1;
using ::testing::_;
using ::testing::DoAll;
using ::testing::Return;
using ::testing::SetArgReferee;

class MockDeviceApi : public NoDeviceApi {
  public:
    MOCK_METHOD(std::uint32_t, getApiInfo, (std::uint32_t&, std::uint32_t&), (override));
    MOCK_METHOD(std::uint32_t, getBoardInfoEx, (std::uint32_t, BoardInfoEx&), (override));
    MOCK_METHOD(std::uint32_t, openStreamHandle, (DeviceHandle, std::uint32_t, std::uint32_t, DeviceHandle&),
                (override));
};

TEST(DeviceErrorTest, TextsAndExceptionWording) {
    EXPECT_STREQ(deviceErrorText(0), "No error");
    EXPECT_STREQ(deviceErrorText(18), "Requested stream is already used");
    EXPECT_STREQ(deviceErrorText(36), "The fail safe firmware is loaded. You need to upgrade your firmware");
    EXPECT_STREQ(deviceErrorText(37), "Unknown Error");
    const DeltacastException withContext(18, "Cannot open RX9 stream.");
    EXPECT_STREQ(withContext.what(), "Cannot open RX9 stream. (Requested stream is already used)");
    EXPECT_EQ(withContext.code, 18u);
    EXPECT_STREQ(DeltacastException(12, "").what(), "(Board is not available)");
    EXPECT_NO_THROW(throwIfDeviceError(0, "x"));
    EXPECT_THROW(throwIfDeviceError(22, "x"), DeltacastException);
}

TEST(BoardReportTest, NoApiMeansNoBoardAndNoException) {
    const BoardInfo info = getBoardReport(noDeviceApi());
    EXPECT_FALSE(info.ApiAvailable);
    EXPECT_FALSE(info.PropertiesValid);
    EXPECT_EQ(info.ApiVersion, "0.0.0");
    EXPECT_EQ(info.NbSdiBoard, 0);
}

TEST(BoardReportTest, BoardZeroIsDescribed) {
    MockDeviceApi api;
    BoardInfoEx board;
    board.driverVersion = 0x06090012;
    board.firmwareWord = 0x18031007;
    board.boardIdentifier = 0x0000001200ABCDEFull;
    board.bus = 1;
    board.numRxChannels = 4;
    board.numTxChannels = 4;
    EXPECT_CALL(api, getApiInfo(_, _))
        .WillOnce(DoAll(SetArgReferee<0>(0x01020003u), SetArgReferee<1>(1u), Return(0u)));
    EXPECT_CALL(api, getBoardInfoEx(0u, _)).WillOnce(DoAll(SetArgReferee<1>(board), Return(0u)));
    const BoardInfo info = getBoardReport(api);
    EXPECT_TRUE(info.ApiAvailable && info.PropertiesValid && info.IsPCIExpress);
    EXPECT_EQ(info.ApiVersion, "1.2.3");
    EXPECT_EQ(info.DriverVersion, "6.9.18");
    EXPECT_EQ(info.FirmwareVersion, "7");
    EXPECT_EQ(info.FirmwareReleaseDate, "18-03-10");
    EXPECT_EQ(info.BoardIdentifier, "0000001200ABCDEF");
    EXPECT_EQ(info.NumRXchannels + info.NumTXchannels, 8);
}

TEST(BoardReportTest, UnreadableBoardThrows) {
    MockDeviceApi api;
    EXPECT_CALL(api, getApiInfo(_, _)).WillOnce(DoAll(SetArgReferee<1>(2u), Return(0u)));
    EXPECT_CALL(api, getBoardInfoEx(0u, _)).WillOnce(Return(12u));
    try {
        getBoardReport(api);
        FAIL();
    } catch (const DeltacastException& e) {
        EXPECT_STREQ(e.what(), "Cannot get BoardInfoEx (Board is not available)");
    }
}

// The stream type, not the port, names the stream; the processing mode is the one of every stream.
TEST(OpenStreamTest, FailureNamesTheStreamTypeAndKeepsTheCode) {
    MockDeviceApi api;
    EXPECT_CALL(api, openStreamHandle(7, 9u, kProcessingMode, _)).WillOnce(Return(18u));
    try {
        openStream(api, 7, kPortNumbers[2].streamType);
        FAIL();
    } catch (const DeltacastException& e) {
        EXPECT_STREQ(e.what(), "Cannot open RX9 stream. (Requested stream is already used)");
        EXPECT_EQ(e.code, kDeviceStreamAlreadyUsed);
    }
    EXPECT_CALL(api, openStreamHandle(7, 1u, _, _)).WillOnce(DoAll(SetArgReferee<3>(42), Return(0u)));
    EXPECT_EQ(openStream(api, 7, 1), 42);
}

TEST(OpenBoardTest, NoBoardFailsWithTheBoardContext) {
    try {
        openBoard(noDeviceApi(), 0);
        FAIL();
    } catch (const DeltacastException& e) {
        EXPECT_STREQ(e.what(), "Cannot open board handle (Board is not available)");
    }
}

}  // namespace
