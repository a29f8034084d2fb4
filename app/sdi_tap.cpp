#include "app/sdi_tap.h"

#include <thread>
#include <utility>

#include "app/capture_lines.h"
#include "app/slot_timing.h"
#include "system/thread/thread.h"

namespace ovtx::app::sdi_tap::v1 {

namespace device = system::sdi::deltacast_io::v1;
namespace formats = encoding::sdi::sdi_common::v2;
namespace records = simulcast::capture_records::v1;
using records::RunChannel;
using records::RunKind;

namespace {

constexpr std::chrono::milliseconds kBoardSettleTime{800};
constexpr std::chrono::milliseconds kMarkerPause{1};
constexpr std::uint32_t kBufferDepth = 6;
// A 3G board with at least four channels makes the planes itself.
constexpr std::uint32_t kPlanarBoardType = 6;
constexpr std::int32_t kPlanarBoardChannels = 4;
constexpr std::uint32_t kTimecodeSource = 3;
constexpr std::uint32_t kTimecodeLine = 16;
constexpr int kLossLevel = 0;

struct NamedValue {
    std::uint32_t value;
    const char* name;
};

// The SDI interface of a board standard: the 4K interfaces join four links into one stream.
NamedValue sdiInterface(std::uint32_t boardStandard) {
    if (boardStandard >= 26 && boardStandard <= 28) {
        return {5, "4k"};
    }
    if (boardStandard == 29 || boardStandard == 30) {
        return {6, "4k"};
    }
    return {device::kSdiInterfaceAuto, "auto"};
}

std::uint32_t bufferPacking(bool planar, bool use10Bit) {
    if (planar) {
        return use10Bit ? device::kPackingPlanar10Bit : device::kPackingPlanar8Bit;
    }
    return use10Bit ? device::kPackingPacked10Bit : device::kPackingPacked8Bit;
}

// About one frame period, in whole milliseconds: how long a channel's reader may hold it up.
std::chrono::milliseconds framePeriod(const formats::SdiFormatInfo& info) {
    return std::chrono::milliseconds((info.rateDenominator * 1000 + info.rateNumerator - 1) /
                                     info.rateNumerator);
}

const char* channelLabel(RunChannel channel, bool opened) {
    switch (channel) {
        case RunChannel::Video:
            return opened ? "Opened simulcast [VIDEO]." : "cannot open simulcast [VIDEO]";
        case RunChannel::Audio:
            return opened ? "Opened simulcast [AUDIO]." : "cannot open simulcast [AUDIO]";
        case RunChannel::Teletext:
            return opened ? "Opened simulcast [Teletext]." : "cannot open simulcast [teletext]";
        case RunChannel::Caption:
            return opened ? "Opened simulcast [ClosedCaption]." : "cannot open simulcast [ClosedCaption]";
    }
    return "";
}

}  // namespace

SdiTap::SdiTap(const RunParameters& parameters, log::i_logger::v0::ILogger& logger, Environment environment)
    : m_report(logger, parameters.print),
      m_logger(logger),
      m_api(environment.api),
      m_environment(std::move(environment)),
      m_parameters(parameters),
      m_handles{m_api},
      m_detector(parameters.fourHdQuads, parameters.sdiPort),
      m_info(parameters.videoFormat),
      m_audio(std::make_unique<AudioExtraction>(m_api, m_info.boardStandard, m_info.clockDivisor,
                                                parameters.audioSampling, m_report)),
      m_objects(RunKind::Capture, m_environment.portName, logger),
      m_framePeriod(framePeriod(m_info)),
      m_timecodeSeen(parameters.useTimecode) {
    m_objects.openStopEvent();
    m_report(true, "SdiTap [%s]", m_environment.portName.c_str());

    const device::BoardInfo boardInfo = device::getBoardReport(m_api);
    if (m_parameters.print) {
        device::printBoardReport(m_logger, boardInfo);
    }
    m_handles.board = device::openBoard(m_api, m_parameters.boardIndex);
    m_planarCapable = boardInfo.NumRXchannels + boardInfo.NumTXchannels >= kPlanarBoardChannels &&
                      boardInfo.BoardType == kPlanarBoardType;
    m_report(false, "Open board handle");
    pause(kBoardSettleTime);
    m_report(true, "%s", formats::formatLongText(m_parameters.videoFormat).c_str());

    openInputStream(boardInfo);
    if (const std::function<void()> streamOpened = std::exchange(m_environment.streamOpened, {})) {
        streamOpened();
    }
    m_objects.clearStaleStop();

    const std::uint32_t detection = detectWithLog(m_detector, m_api, m_handles.board, m_logger);
    const formats::SDI_VIDEO_STANDARD detected = m_detector.detectedFormat();
    if (detection != device::kDeviceOk || detected == formats::NO_FORMAT) {
        m_report(false, "Invalid video standard. Please check that the SDI cable is plugged.");
    }
    m_standardMismatch = detected != formats::formatCodeOf(m_info);
    setStandardAndInterface();
    setBufferLayout();
    m_report(false, "Setup input stream [Video]");
    setVbiLines();
    setTimeout();
    openPublicObjects();
    if (m_parameters.use10Bit && m_info.scan == formats::SCAN_PROGRESSIVE) {
        system::thread::v1::placeCurrentThreadOnProcessorGroup(&m_logger);
    }
}

SdiTap::DeviceHandles::~DeviceHandles() {
    if (stream != device::kNoHandle) {
        api.closeStreamHandle(stream);
    }
    if (board != device::kNoHandle) {
        api.closeBoardHandle(board);
    }
}

SdiTap::~SdiTap() {
    m_objects.close();
    m_video.reset();
}

void SdiTap::openInputStream(const device::BoardInfo& boardInfo) {
    if (m_parameters.fourHdQuads) {
        if (boardInfo.NumRXchannels < static_cast<std::int32_t>(kQuadrantCount)) {
            throw SdiTapException("Not enough input port for 4K interface");
        }
        m_handles.stream = device::openStream(m_api, m_handles.board, device::kPortNumbers[0].streamType);
        return;
    }
    const std::int32_t port = m_parameters.sdiPort;
    if (port < 0 || port >= boardInfo.NumRXchannels || static_cast<std::size_t>(port) >= device::kMaxPorts) {
        throw SdiTapException("Invalid deltacast port #" + std::to_string(port));
    }
    m_handles.stream = device::openStream(m_api, m_handles.board,
                                          device::kPortNumbers[static_cast<std::size_t>(port)].streamType);
}

void SdiTap::setStandardAndInterface() {
    if (!m_standardMismatch) {
        device::throwIfDeviceError(
            m_api.setStreamProperty(m_handles.stream, device::kStreamVideoStandard, m_info.boardStandard),
            "Cannot setup video format " + formats::formatShortText(m_parameters.videoFormat));
    } else {
        m_report(false, "Cannot set video Standard [Video]");
    }
    const NamedValue interface = sdiInterface(m_info.boardStandard);
    device::throwIfDeviceError(
        m_api.setStreamProperty(m_handles.stream, device::kStreamSdiInterface, interface.value),
        std::string("Cannot set interface (") + interface.name + ")");
}

void SdiTap::openPublicObjects() {
    m_objects.openBlocks(formats::formatCodeOf(m_info), m_parameters.use10Bit ? 10 : 8, m_framePeriod);
    m_video = std::make_unique<VideoExtraction>(m_info, m_planarCapable, m_parameters.use10Bit);
    const auto failed = m_objects.openChannels(
        records::capturePictureSize(m_info.width, m_info.height, m_parameters.use10Bit), m_framePeriod,
        [this](RunChannel channel) { m_report(false, "%s", channelLabel(channel, true)); });
    if (failed) {
        // The exception's text is the engine's own; the system's reason goes to the log first.
        if (const std::string reason = m_objects.failure(*failed); !reason.empty()) {
            m_logger.Log(1, "Could not open simulcast %s", reason.c_str());
        }
        throw SdiTapException(channelLabel(*failed, false));
    }
}

void SdiTap::setBufferLayout() {
    device::throwIfDeviceError(
        m_api.setStreamProperty(m_handles.stream, device::kStreamBufferDepth, kBufferDepth),
        "Cannot set buffer depth to " + std::to_string(kBufferDepth));
    const std::string packingName =
        std::string(m_planarCapable ? "Planar" : "Packed") + " " + (m_parameters.use10Bit ? "10bit" : "8bit");
    device::throwIfDeviceError(m_api.setStreamProperty(m_handles.stream, device::kStreamBufferPacking,
                                                       bufferPacking(m_planarCapable, m_parameters.use10Bit)),
                               "Cannot set buffer packing property (" + packingName + ")");
    device::throwIfDeviceError(m_api.setStreamProperty(m_handles.stream, device::kStreamTransferScheme,
                                                       device::kTransferSchemeSlaved),
                               "Cannot set 'slaved' transfer scheme property");
}

void SdiTap::setVbiLines() {
    m_vbiLines = captureLineTable(m_info);
    if (m_api.vbiSetCaptureLines(m_handles.stream, m_vbiLines) != device::kDeviceOk) {
        m_report(false, "Cannot setup input stream [VBI]");
        return;
    }
    m_report(false, "Setup input stream [VBI]");
    m_wssLineIndex = lineIndex(m_vbiLines, m_info.wssLine);
    m_ancLineIndex = lineIndex(m_vbiLines, m_info.ancLine);
}

void SdiTap::setTimeout() {
    // Twice the frame rate, rounded: 50 at 25 frames a second, 120 at 59.94.
    const auto timeout = static_cast<std::uint32_t>(
        static_cast<double>(m_info.rateNumerator) * 2.0 / static_cast<double>(m_info.rateDenominator) + 0.5);
    device::throwIfDeviceError(m_api.setStreamProperty(m_handles.stream, device::kStreamTimeout, timeout),
                               "Cannot setup Timeout");
    m_report(false, "Timeout set.");
}

void SdiTap::run() {
    startRun();
    while (!runPass()) {
    }
}

void SdiTap::startRun() {
    if (!m_standardMismatch) {
        device::throwIfDeviceError(m_api.startStream(m_handles.stream), "Cannot open input stream");
        m_report(false, "Opened input stream.");
        m_slotCounter = 0;
        m_slotsDropped = 0;
    }
    m_report(false, "Start processing ...");
    m_discontinuity = false;
    m_discontinuityPending = false;
    m_aspect = kAspect4x3;
}

bool SdiTap::runPass() {
    const std::uint32_t detection = detectWithLog(m_detector, m_api, m_handles.board, m_logger);
    const formats::SDI_VIDEO_STANDARD detected = m_detector.detectedFormat();
    if (detection != device::kDeviceOk || detected != formats::formatCodeOf(m_info)) {
        publishMarker();
    } else if (m_standardMismatch) {
        restart();
    } else {
        handleSlot();
    }
    if (m_objects.stopRequested()) {
        m_api.stopStream(m_handles.stream);
        m_report(false, "Warning : STOP SIGNAL DETECTED");
        return true;
    }
    return false;
}

void SdiTap::requestStop() noexcept {
    m_objects.requestStop();
}

void SdiTap::restart() {
    const std::int32_t format = formats::formatCodeOf(m_info);
    m_report(true, "%s", formats::formatLongText(format).c_str());
    m_objects.writeFormat(format, m_parameters.use10Bit ? 10 : 8);
    m_api.stopStream(m_handles.stream);
    device::throwIfDeviceError(
        m_api.setStreamProperty(m_handles.stream, device::kStreamVideoStandard, m_info.boardStandard),
        "Set Input Video Standard failed");
    m_standardMismatch = false;
    m_report(false, "Set Input Video Standard done");
    setBufferLayout();
    m_report(false, "Setup input stream [Video]");
    setVbiLines();
    setTimeout();
    device::throwIfDeviceError(m_api.startStream(m_handles.stream), "Cannot open input stream");
    m_slotCounter = 0;
    m_slotsDropped = 0;
    m_report(true, "Opened input stream");
}

void SdiTap::publishMarker() {
    m_standardMismatch = true;
    const std::int64_t start = records::frameStartTime(m_slotFrameNumber, m_info);
    const std::int64_t end = records::frameEndTime(m_slotFrameNumber, m_info);
    auto& writer = m_objects.writer(RunChannel::Video);
    if (auto* chunk = static_cast<std::uint8_t*>(writer.beginChunk())) {
        fillVideoHeader(chunk, kAspect4x3, start, end);
        writer.commitChunk();
    }
    m_report(false, "Warning : Incoherent Input Video Standard");
    pause(kMarkerPause);
}

void SdiTap::handleSlot() {
    const std::uint32_t droppedBefore = m_slotsDropped;
    m_api.getStreamProperty(m_handles.stream, device::kStreamSlotCounter, m_slotCounter);
    m_api.getStreamProperty(m_handles.stream, device::kStreamSlotsDropped, m_slotsDropped);

    DeviceHandle slot = device::kNoHandle;
    const std::uint32_t lock = m_api.lockSlotHandle(m_handles.stream, slot);
    if (lock == device::kDeviceTimeout) {
        m_report(false, "SDI : Waiting for data!");
    } else if (lock != device::kDeviceOk) {
        m_discontinuityPending = true;
        m_report(false, "Lock Video Slot Error : 0x%X", lock);
    } else {
        std::int64_t elapsed = 1;
        readSlotTime(slot, elapsed);
        const std::string loss = lossText(static_cast<std::int32_t>(elapsed - 1),
                                          static_cast<std::int32_t>(m_slotsDropped - droppedBefore));
        if (!loss.empty()) {
            m_logger.Log(kLossLevel, "%s", loss.c_str());
        }
        numberFrame(slot, elapsed);
        const std::int64_t start = records::frameStartTime(m_slotFrameNumber, m_info);
        const std::int64_t end = records::frameEndTime(m_slotFrameNumber, m_info);
        extractAudio(slot, start, end);
        m_aspect = isStandardDefinition(m_info.boardStandard) ? readWss(slot) : kAspect16x9;
        extractVideo(slot, m_aspect, start, end);
        extractTeletext(slot, start, end);
        extractCaptions(slot, start, end);
        m_api.unlockSlotHandle(slot);
    }
    m_objects.logSkips();
    if (m_discontinuityPending) {
        m_discontinuityPending = false;
        m_discontinuity = true;
        m_report(false, "Warning : discontinuity detected.");
    }
}

void SdiTap::readSlotTime(DeviceHandle slot, std::int64_t& elapsed) {
    std::uint64_t time = 0;
    if (m_api.getSlotSystemTime(slot, time) != device::kDeviceOk) {
        m_report(true, "Error while getting slot system time");
        return;
    }
    const auto slotTime = static_cast<std::int64_t>(time);
    if (m_lastSlotTime > 0) {
        elapsed = elapsedFramePeriods(slotTime, m_lastSlotTime, m_info.rateNumerator, m_info.rateDenominator);
    }
    m_lastSlotTime = slotTime;
}

void SdiTap::numberFrame(DeviceHandle slot, std::int64_t elapsed) {
    device::TimecodeRecord timecode{};
    if (m_parameters.useTimecode) {
        timecode.source = kTimecodeSource;
        timecode.line = kTimecodeLine;
        const bool read = m_api.slotExtractTimecode(slot, timecode) == device::kDeviceOk;
        if (!read && m_timecodeSeen) {
            m_report(true, "Could not read timecode");
        }
        m_timecodeSeen = read;
    } else {
        m_timecodeSeen = false;
    }
    if (!m_timecodeSeen) {
        m_slotFrameNumber += elapsed;
        return;
    }
    m_slotFrameNumber = timecodeFrameNumber(
        timecode, roundedUpFrameRate(m_info.rateNumerator, m_info.rateDenominator), m_info.dropFrame);
}

void SdiTap::extractAudio(DeviceHandle slot, std::int64_t start, std::int64_t end) {
    auto& writer = m_objects.writer(RunChannel::Audio);
    auto* record = static_cast<records::AudioRecord*>(writer.beginChunk());
    if (record == nullptr) {
        return;
    }
    const bool discontinuity = m_discontinuity || m_objects.followsSkips(RunChannel::Audio);
    if (!m_audio->extract(slot, *record, discontinuity, start, end)) {
        m_discontinuityPending = true;
    }
    writer.commitChunk();
}

void SdiTap::extractVideo(DeviceHandle slot, AspectRatio aspect, std::int64_t start, std::int64_t end) {
    std::uint8_t* buffer = nullptr;
    std::uint32_t size = 0;
    if (const std::uint32_t result = m_api.getSlotBuffer(slot, device::kVideoBuffer, buffer, size);
        result != device::kDeviceOk) {
        m_report(false, "ERROR : Cannot get slot buffer. Result = 0x%08X\n", result);
        return;
    }
    auto& writer = m_objects.writer(RunChannel::Video);
    auto* chunk = static_cast<std::uint8_t*>(writer.beginChunk());
    if (chunk == nullptr) {
        return;
    }
    fillVideoHeader(chunk, aspect, start, end);
    m_video->extractPicture(buffer, size, chunk + records::kVideoPictureOffset);
    writer.commitChunk();
}

void SdiTap::fillVideoHeader(std::uint8_t* chunk, AspectRatio aspect, std::int64_t start, std::int64_t end) {
    auto* header = reinterpret_cast<records::VideoRecordHeader*>(chunk);
    header->magic = records::kVideoMagic;
    header->standardMismatch = m_standardMismatch ? 1 : 0;
    header->discontinuity = (m_discontinuity || m_objects.followsSkips(RunChannel::Video)) ? 1 : 0;
    header->aspectNumerator = aspect.numerator;
    header->aspectDenominator = aspect.denominator;
    header->start = start;
    header->end = end;
    m_objects.publishClock(start);
    m_discontinuity = false;
}

void SdiTap::pause(std::chrono::milliseconds duration) {
    if (m_environment.pause) {
        m_environment.pause(duration);
    } else {
        std::this_thread::sleep_for(duration);
    }
}

std::int32_t SdiTap::detectedFormat() const {
    return m_detector.detectedFormat();
}

std::int32_t SdiTap::quadrantFormat(std::size_t quadrant) const {
    return m_detector.quadrantFormat(quadrant);
}

AudioPairStatistic SdiTap::audioStatistic(std::size_t pair) const {
    return m_audio->statistic(pair);
}

}  // namespace ovtx::app::sdi_tap::v1
