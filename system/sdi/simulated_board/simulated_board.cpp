#include "system/sdi/simulated_board/simulated_board.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <thread>

namespace ovtx::system::sdi::simulated_board::v1 {

namespace device = deltacast_io::v1;
namespace cc = encoding::subtitling::v1;
using device::DeviceHandle;

namespace {

constexpr DeviceHandle kBoardHandle = 1;
constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::uint32_t kDefaultBufferDepth = 4;
constexpr std::uint32_t kDefaultTimeoutMs = 100;
constexpr std::uint32_t kMaxBufferDepth = 32;
constexpr std::int32_t kMaxLine = 1125;
// Teletext lines of a 625-line frame: 7 to 22 of field 1, 320 to 335 of field 2.
constexpr std::int32_t kTeletextLinesPerField = 16;
constexpr std::int32_t kFirstTeletextLine[2] = {7, 320};
constexpr std::int32_t kWssLine = 23;
constexpr std::int32_t kCaptionLines[2] = {21, 284};

// The rate of stretches with no signal before any known rate: 25 frames a second.
const FrameShape kNoSignalShape{};

std::int64_t ceilDiv(std::int64_t a, std::int64_t b) {
    return (a + b - 1) / b;
}

}  // namespace

struct SimulatedBoard::Segment {
    SignalSegment described;
    std::optional<FrameShape> shape;  // nothing without signal, or for a standard with no picture
    std::int64_t rateNumerator = 25;
    std::int64_t rateDenominator = 1;
    std::int64_t firstFrame = 0;
    std::int64_t startNs = 0;

    // Nanoseconds from the segment's start to the start of its frame `k`.
    std::int64_t offsetOf(std::int64_t k) const {
        return k / rateNumerator * rateDenominator * kNanosecondsPerSecond +
               k % rateNumerator * rateDenominator * kNanosecondsPerSecond / rateNumerator;
    }
    bool carries(std::uint32_t standard) const {
        return described.present && shape && described.standard == standard;
    }
};

struct SimulatedBoard::Port {
    std::uint32_t number = 0;
    PortScenario described;
    std::vector<Segment> segments;
    std::unique_ptr<CaptionTrack> captions;

    const Segment& segmentOfFrame(std::int64_t frame) const {
        auto it = std::upper_bound(segments.begin(), segments.end(), frame,
                                   [](std::int64_t f, const Segment& s) { return f < s.firstFrame; });
        return *std::prev(it);
    }
    // The input frame in progress at `ns`.
    std::int64_t frameAt(std::int64_t ns) const {
        auto it = std::upper_bound(segments.begin(), segments.end(), ns,
                                   [](std::int64_t t, const Segment& s) { return t < s.startNs; });
        const Segment& segment = *std::prev(it);
        const std::int64_t into = ns - segment.startNs;
        auto k = static_cast<std::int64_t>(
            static_cast<long double>(into) * segment.rateNumerator /
            (static_cast<long double>(segment.rateDenominator) * kNanosecondsPerSecond));
        while (k > 0 && segment.offsetOf(k) > into) {
            --k;
        }
        while (segment.offsetOf(k + 1) <= into) {
            ++k;
        }
        return segment.firstFrame + k;
    }
    // When input frame `frame` has been received whole.
    std::int64_t endOf(std::int64_t frame) const {
        const Segment& segment = segmentOfFrame(frame);
        return segment.startNs + segment.offsetOf(frame - segment.firstFrame + 1);
    }
    // Frames of [first, last] of that standard that reached the board (gaps left out).
    std::int64_t capturedIn(std::int64_t first, std::int64_t last, std::uint32_t standard) const {
        std::int64_t count = 0;
        for (std::size_t i = 0; i < segments.size(); ++i) {
            const std::int64_t end = i + 1 < segments.size() ? segments[i + 1].firstFrame - 1 : last;
            const std::int64_t from = std::max(first, segments[i].firstFrame);
            const std::int64_t to = std::min(last, end);
            if (from > to || !segments[i].carries(standard)) {
                continue;
            }
            count += to - from + 1;
            for (const FrameWindow& gap : described.gaps) {
                count -= std::max<std::int64_t>(
                    0, std::min(to, gap.at + gap.frames - 1) - std::max(from, gap.at) + 1);
            }
        }
        return std::max<std::int64_t>(0, count);
    }
    bool inAny(const std::vector<FrameWindow>& windows, std::int64_t frame) const {
        return std::any_of(windows.begin(), windows.end(),
                           [&](const FrameWindow& w) { return w.contains(frame); });
    }
};

struct SimulatedBoard::Stream {
    Port* port = nullptr;
    ipc::v2::ProcessClaim claim;
    std::map<std::uint32_t, std::uint32_t> properties{
        {device::kStreamTransferScheme, 0},
        {device::kStreamVideoStandard, device::kNoBoardStandard},
        {device::kStreamBufferPacking, device::kPackingPacked8Bit},
        {device::kStreamBufferDepth, kDefaultBufferDepth},
        {device::kStreamTimeout, kDefaultTimeoutMs},
        {device::kStreamSdiInterface, device::kSdiInterfaceAuto}};
    bool running = false;
    std::int64_t nextFrame = 0;
    std::uint32_t slotCounter = 0;
    std::uint32_t slotsDropped = 0;
    bool vbiLinesSet = false;
    std::uint16_t cdpSequence = 0;
};

struct SimulatedBoard::Slot {
    struct Packet {
        device::AncPacket header;
        std::vector<std::uint16_t> words;
    };
    Stream* stream = nullptr;
    std::int64_t frame = 0;
    const Segment* segment = nullptr;
    std::uint32_t packing = 0;
    std::uint64_t timeUs = 0;
    std::vector<std::uint8_t> video;
    bool videoRendered = false;
    std::optional<VbiLines> vbi;
    std::optional<std::map<std::int32_t, std::vector<Packet>>> anc;
};

namespace {

// Real time since the board was made, sped up by the scenario's factor.
class SpeedClock final : public BoardClock {
  public:
    explicit SpeedClock(double speed) : m_speed(speed), m_start(std::chrono::steady_clock::now()) {}
    std::int64_t nowNs() override {
        const auto wall = std::chrono::steady_clock::now() - m_start;
        return static_cast<std::int64_t>(
            static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(wall).count()) *
            m_speed);
    }
    void sleepFor(std::int64_t nanoseconds) override {
        std::this_thread::sleep_for(std::chrono::nanoseconds(
            static_cast<std::int64_t>(std::ceil(static_cast<double>(nanoseconds) / m_speed))));
    }

  private:
    double m_speed;
    std::chrono::steady_clock::time_point m_start;
};

}  // namespace

SimulatedBoard::SimulatedBoard(Scenario scenario, std::unique_ptr<BoardClock> clock)
    : m_scenario(std::move(scenario)),
      m_clock(clock ? std::move(clock) : std::make_unique<SpeedClock>(m_scenario.speed)),
      m_powerOnMicroseconds(std::chrono::duration_cast<std::chrono::microseconds>(
                                std::chrono::steady_clock::now().time_since_epoch())
                                .count()) {
    for (std::int32_t number = 0; number < m_scenario.board.numRxChannels; ++number) {
        auto port = std::make_unique<Port>();
        port->number = static_cast<std::uint32_t>(number);
        const auto found = m_scenario.ports.find(port->number);
        if (found != m_scenario.ports.end()) {
            port->described = found->second;
        } else {
            port->described.signal.push_back(SignalSegment{0, false});
        }
        std::int64_t frame = 0;
        std::int64_t ns = 0;
        std::optional<FrameShape> lastShape;
        for (const SignalSegment& described : port->described.signal) {
            Segment segment;
            segment.described = described;
            if (described.present) {
                segment.shape = shapeOf(described.standard, described.clockDivisor);
            }
            // A stretch without a picture runs at the rate of the stretch before it.
            const FrameShape rate = segment.shape ? *segment.shape : lastShape.value_or(kNoSignalShape);
            segment.rateNumerator = rate.rateNumerator;
            segment.rateDenominator = rate.rateDenominator;
            segment.firstFrame = frame;
            segment.startNs = ns;
            frame += described.frames;
            ns += segment.offsetOf(described.frames);
            if (segment.shape) {
                lastShape = segment.shape;
            }
            port->segments.push_back(segment);
        }
        port->captions = std::make_unique<CaptionTrack>(port->described.captions);
        m_ports.push_back(std::move(port));
    }
}

SimulatedBoard::~SimulatedBoard() = default;

std::string SimulatedBoard::claimName(std::uint64_t serial, std::uint32_t port) {
    char name[64];
    std::snprintf(name, sizeof name, "sdi_board.%016llX.rx%u", static_cast<unsigned long long>(serial), port);
    return name;
}

std::int64_t SimulatedBoard::nowNs() const {
    return m_clock->nowNs();
}

void SimulatedBoard::sleepSimulated(std::int64_t nanoseconds, std::unique_lock<std::mutex>& lock) const {
    lock.unlock();
    m_clock->sleepFor(nanoseconds);
    lock.lock();
}

std::uint32_t SimulatedBoard::injected(const char* operation) const {
    for (const ErrorInjection& error : m_scenario.errors) {
        if (error.operation == operation) {
            return error.code;
        }
    }
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::injected(const char* operation, const Port& port, std::int64_t frame) const {
    for (const ErrorInjection& error : port.described.errors) {
        if (error.operation == operation && (!error.window || error.window->contains(frame))) {
            return error.code;
        }
    }
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::injectedNow(const char* operation, const Stream& stream) const {
    return injected(operation, *stream.port, stream.port->frameAt(nowNs()));
}

SimulatedBoard::Stream* SimulatedBoard::findStream(DeviceHandle stream) {
    const auto found = m_streams.find(stream);
    return found == m_streams.end() ? nullptr : found->second.get();
}

SimulatedBoard::Slot* SimulatedBoard::findSlot(DeviceHandle slot) {
    const auto found = m_slots.find(slot);
    return found == m_slots.end() ? nullptr : found->second.get();
}

std::uint32_t SimulatedBoard::getApiInfo(std::uint32_t& apiVersion, std::uint32_t& boardCount) {
    std::lock_guard lock(m_mutex);
    if (!m_scenario.apiPresent) {
        return device::kDeviceNotAvailable;
    }
    if (const std::uint32_t code = injected("VHD_GetApiInfo")) {
        return code;
    }
    apiVersion = m_scenario.apiVersion;
    boardCount = m_scenario.boardCount;
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::getBoardInfoEx(std::uint32_t boardIndex, device::BoardInfoEx& info) {
    std::lock_guard lock(m_mutex);
    if (!m_scenario.apiPresent) {
        return device::kDeviceNotAvailable;
    }
    if (boardIndex >= m_scenario.boardCount) {
        return device::kDeviceBadArgument;
    }
    if (const std::uint32_t code = injected("VHD_GetBoardInfoEx")) {
        return code;
    }
    info = m_scenario.board;
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::openBoardHandle(std::uint32_t boardIndex, DeviceHandle& board) {
    std::lock_guard lock(m_mutex);
    if (!m_scenario.apiPresent || boardIndex >= m_scenario.boardCount) {
        return device::kDeviceNotAvailable;
    }
    if (const std::uint32_t code = injected("VHD_OpenBoardHandle")) {
        return code;
    }
    board = kBoardHandle;
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::closeBoardHandle(DeviceHandle board) {
    std::lock_guard lock(m_mutex);
    if (board != kBoardHandle) {
        return device::kDeviceInvalidHandle;
    }
    return injected("VHD_CloseBoardHandle");
}

std::uint32_t SimulatedBoard::getBoardProperty(DeviceHandle board, std::uint32_t property,
                                               std::uint32_t& value) {
    std::lock_guard lock(m_mutex);
    if (board != kBoardHandle) {
        return device::kDeviceInvalidHandle;
    }
    for (const auto& port : m_ports) {
        const device::PortNumbers& numbers = device::kPortNumbers[port->number];
        if (property != numbers.standardProperty && property != numbers.clockDivisorProperty) {
            continue;
        }
        const std::int64_t frame = port->frameAt(nowNs());
        if (const std::uint32_t code = injected("VHD_GetBoardProperty", *port, frame)) {
            return code;
        }
        const Segment& segment = port->segmentOfFrame(frame);
        if (!segment.described.present) {
            return device::kDeviceBadInputSignal;
        }
        value = property == numbers.standardProperty ? segment.described.standard
                                                     : segment.described.clockDivisor;
        return device::kDeviceOk;
    }
    return device::kDeviceInvalidProperty;
}

std::uint32_t SimulatedBoard::openStreamHandle(DeviceHandle board, std::uint32_t streamType,
                                               std::uint32_t processingMode, DeviceHandle& stream) {
    std::lock_guard lock(m_mutex);
    if (board != kBoardHandle) {
        return device::kDeviceInvalidHandle;
    }
    if (processingMode != device::kProcessingMode) {
        return device::kDeviceBadArgument;
    }
    const auto numbers =
        std::find_if(device::kPortNumbers.begin(), device::kPortNumbers.end(),
                     [&](const device::PortNumbers& n) { return n.streamType == streamType; });
    const auto number = static_cast<std::size_t>(numbers - device::kPortNumbers.begin());
    if (numbers == device::kPortNumbers.end() || number >= m_ports.size()) {
        return device::kDeviceInvalidStream;
    }
    Port& port = *m_ports[number];
    if (const std::uint32_t code = injected("VHD_OpenStreamHandle", port, port.frameAt(nowNs()))) {
        return code;
    }
    if (port.described.heldByAnotherProcess) {
        return device::kDeviceStreamAlreadyUsed;
    }
    auto opened = std::make_unique<Stream>();
    opened->port = &port;
    opened->claim = ipc::v2::ProcessClaim::take(claimName(m_scenario.board.boardIdentifier, port.number));
    if (!opened->claim.held()) {
        return device::kDeviceStreamAlreadyUsed;
    }
    stream = m_nextHandle++;
    m_streams[stream] = std::move(opened);
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::closeStreamHandle(DeviceHandle stream) {
    std::lock_guard lock(m_mutex);
    Stream* open = findStream(stream);
    if (open == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injectedNow("VHD_CloseStreamHandle", *open)) {
        return code;
    }
    std::erase_if(m_slots, [&](const auto& entry) { return entry.second->stream == open; });
    m_streams.erase(stream);
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::startStream(DeviceHandle stream) {
    std::lock_guard lock(m_mutex);
    Stream* open = findStream(stream);
    if (open == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injectedNow("VHD_StartStream", *open)) {
        return code;
    }
    if (!open->running) {
        open->running = true;
        open->nextFrame = open->port->frameAt(nowNs()) + 1;
        open->slotCounter = 0;
        open->slotsDropped = 0;
    }
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::stopStream(DeviceHandle stream) {
    std::lock_guard lock(m_mutex);
    Stream* open = findStream(stream);
    if (open == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injectedNow("VHD_StopStream", *open)) {
        return code;
    }
    open->running = false;
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::setStreamProperty(DeviceHandle stream, std::uint32_t property,
                                                std::uint32_t value) {
    std::lock_guard lock(m_mutex);
    Stream* open = findStream(stream);
    if (open == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injectedNow("VHD_SetStreamProperty", *open)) {
        return code;
    }
    if (property == device::kStreamSlotCounter || property == device::kStreamSlotsDropped) {
        return device::kDevicePropertyReadOnly;
    }
    if (!open->properties.contains(property)) {
        return device::kDeviceInvalidProperty;
    }
    if (open->running && property != device::kStreamTimeout) {
        return device::kDeviceConfigurationLocked;
    }
    switch (property) {
        case device::kStreamBufferPacking:
            if (value == device::kPackingPlanar8Bit || value == device::kPackingPlanar10Bit) {
                if (!planarCapable(m_scenario.board)) {
                    return device::kDeviceBadArgument;
                }
            } else if (value != device::kPackingPacked8Bit && value != device::kPackingPacked10Bit) {
                return device::kDeviceBadArgument;
            }
            break;
        case device::kStreamBufferDepth:
            if (value < 2 || value > kMaxBufferDepth) {
                return device::kDeviceBadArgument;
            }
            break;
        default:
            break;
    }
    open->properties[property] = value;
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::getStreamProperty(DeviceHandle stream, std::uint32_t property,
                                                std::uint32_t& value) {
    std::lock_guard lock(m_mutex);
    Stream* open = findStream(stream);
    if (open == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injectedNow("VHD_GetStreamProperty", *open)) {
        return code;
    }
    if (property == device::kStreamSlotCounter) {
        value = open->slotCounter;
    } else if (property == device::kStreamSlotsDropped) {
        value = open->slotsDropped;
    } else if (const auto found = open->properties.find(property); found != open->properties.end()) {
        value = found->second;
    } else {
        return device::kDeviceInvalidProperty;
    }
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::vbiSetCaptureLines(DeviceHandle stream, const device::VbiLineTable& lines) {
    std::lock_guard lock(m_mutex);
    Stream* open = findStream(stream);
    if (open == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injectedNow("VHD_VbiSetCaptureLines", *open)) {
        return code;
    }
    for (const device::VbiLineEntry& entry : lines) {
        if (entry.line > static_cast<std::uint32_t>(kMaxLine)) {
            return device::kDeviceBadArgument;
        }
    }
    open->vbiLinesSet = true;
    return device::kDeviceOk;
}

// The frame the next slot holds, among those received up to `latest`. Frames of another standard
// never become slots; frames in a gap never reached the board; frames in a drop window, and
// frames pushed out of the buffers while nobody locked a slot, count as dropped.
std::optional<std::int64_t> SimulatedBoard::nextSlotFrame(Stream& stream, std::int64_t latest) {
    const Port& port = *stream.port;
    const std::uint32_t standard = stream.properties[device::kStreamVideoStandard];
    const std::int64_t depth = stream.properties[device::kStreamBufferDepth];
    if (latest - stream.nextFrame >= depth) {
        // Only the newest `depth` frames are still in the buffers.
        const std::int64_t lostUpTo = latest - depth;
        const auto lost = static_cast<std::uint32_t>(port.capturedIn(stream.nextFrame, lostUpTo, standard));
        stream.slotCounter += lost;
        stream.slotsDropped += lost;
        stream.nextFrame = lostUpTo + 1;
    }
    while (stream.nextFrame <= latest) {
        const std::int64_t frame = stream.nextFrame++;
        if (!port.segmentOfFrame(frame).carries(standard) || port.inAny(port.described.gaps, frame)) {
            continue;
        }
        ++stream.slotCounter;
        if (port.inAny(port.described.drops, frame)) {
            ++stream.slotsDropped;
            continue;
        }
        return frame;
    }
    return std::nullopt;
}

std::uint32_t SimulatedBoard::lockSlotHandle(DeviceHandle stream, DeviceHandle& slot) {
    std::unique_lock lock(m_mutex);
    Stream* open = findStream(stream);
    if (open == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (!open->running) {
        return device::kDeviceStreamNotRunning;
    }
    if (const std::uint32_t code = injectedNow("VHD_LockSlotHandle", *open)) {
        return code;
    }
    const Port& port = *open->port;
    const std::int64_t deadline =
        nowNs() + static_cast<std::int64_t>(open->properties[device::kStreamTimeout]) * 1'000'000;
    for (;;) {
        const std::int64_t now = nowNs();
        if (const std::optional<std::int64_t> frame = nextSlotFrame(*open, port.frameAt(now) - 1)) {
            auto locked = std::make_unique<Slot>();
            locked->stream = open;
            locked->frame = *frame;
            locked->segment = &port.segmentOfFrame(*frame);
            locked->packing = open->properties[device::kStreamBufferPacking];
            locked->timeUs = static_cast<std::uint64_t>(m_powerOnMicroseconds + port.endOf(*frame) / 1000);
            slot = m_nextHandle++;
            m_slots[slot] = std::move(locked);
            return device::kDeviceOk;
        }
        if (now >= deadline) {
            return device::kDeviceTimeout;
        }
        sleepSimulated(std::min(deadline, port.endOf(open->nextFrame)) - now, lock);
    }
}

std::uint32_t SimulatedBoard::unlockSlotHandle(DeviceHandle slot) {
    std::lock_guard lock(m_mutex);
    Slot* locked = findSlot(slot);
    if (locked == nullptr) {
        return slot > 0 && slot < m_nextHandle ? device::kDeviceFrameAlreadyUnlocked
                                               : device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injected("VHD_UnlockSlotHandle", *locked->stream->port, locked->frame)) {
        return code;
    }
    m_slots.erase(slot);
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::getSlotBuffer(DeviceHandle slot, std::uint32_t bufferType,
                                            std::uint8_t*& buffer, std::uint32_t& size) {
    std::lock_guard lock(m_mutex);
    Slot* locked = findSlot(slot);
    if (locked == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injected("VHD_GetSlotBuffer", *locked->stream->port, locked->frame)) {
        return code;
    }
    if (bufferType != device::kVideoBuffer) {
        return device::kDeviceBadArgument;
    }
    if (!locked->videoRendered) {
        m_pictures.render(*locked->segment->shape, locked->packing, locked->frame, locked->video);
        locked->videoRendered = true;
    }
    buffer = locked->video.data();
    size = static_cast<std::uint32_t>(locked->video.size());
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::getSlotSystemTime(DeviceHandle slot, std::uint64_t& time) {
    std::lock_guard lock(m_mutex);
    Slot* locked = findSlot(slot);
    if (locked == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injected("VHD_GetSlotSystemTime", *locked->stream->port, locked->frame)) {
        return code;
    }
    time = locked->timeUs;
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::slotExtractTimecode(DeviceHandle slot, device::TimecodeRecord& timecode) {
    std::lock_guard lock(m_mutex);
    Slot* locked = findSlot(slot);
    if (locked == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    const Port& port = *locked->stream->port;
    if (const std::uint32_t code = injected("VHD_SlotExtractTimecode", port, locked->frame)) {
        return code;
    }
    const TimecodeSpec& described = port.described.timecode;
    if (!described.present || port.inAny(described.missing, locked->frame)) {
        return device::kDeviceNotFound;
    }
    const FrameShape& shape = *locked->segment->shape;
    const std::int64_t fps = ceilDiv(shape.rateNumerator, shape.rateDenominator);
    const std::int64_t dropped = described.dropFrame ? fps / 15 : 0;  // frame numbers skipped each minute
    const auto& s = described.start;
    const std::int64_t startMinutes = s[0] * 60 + s[1];
    std::int64_t count =
        (startMinutes * 60 + s[2]) * fps + s[3] - dropped * (startMinutes - startMinutes / 10);
    count += locked->frame;
    if (dropped > 0) {
        const std::int64_t perTenMinutes = fps * 600 - dropped * 9;
        const std::int64_t perMinute = fps * 60 - dropped;
        const std::int64_t tens = count / perTenMinutes;
        const std::int64_t rest = count % perTenMinutes;
        count += dropped * 9 * tens + (rest > dropped ? dropped * ((rest - dropped) / perMinute) : 0);
    }
    count %= 24 * 3600 * fps;
    timecode.hours = static_cast<std::uint8_t>(count / (3600 * fps));
    timecode.minutes = static_cast<std::uint8_t>(count / (60 * fps) % 60);
    timecode.seconds = static_cast<std::uint8_t>(count / fps % 60);
    timecode.frames = static_cast<std::uint8_t>(count % fps);
    timecode.dropFrame = described.dropFrame ? 1 : 0;
    return device::kDeviceOk;
}

void SimulatedBoard::buildAnc(Slot& slot) {
    if (slot.anc) {
        return;
    }
    slot.anc.emplace();
    auto& lines = *slot.anc;
    const Port& port = *slot.stream->port;
    auto add = [&](std::int32_t line, std::uint8_t did, std::uint8_t sdid, std::vector<std::uint16_t> words) {
        Slot::Packet packet;
        packet.words = std::move(words);
        packet.header.did = did;
        packet.header.sdid = sdid;
        lines[line].push_back(std::move(packet));
    };
    const FrameShape& shape = *slot.segment->shape;
    if (!shape.sd()) {
        if (!port.described.captions.empty()) {
            add(port.described.captionLine, 0x61, 0x01,
                captionDistributionPacket(shape, slot.stream->cdpSequence++,
                                          port.captions->pairAt(1, slot.frame),
                                          port.captions->pairAt(2, slot.frame)));
        }
        const std::vector<cc::TeletextPacket> packets = teletextPackets(
            port.described.teletext, slot.frame, static_cast<std::size_t>(2 * kTeletextLinesPerField));
        const bool subtitle =
            std::any_of(port.described.teletext.pages.begin(), port.described.teletext.pages.end(),
                        [](const TeletextPageSpec& page) { return page.subtitle; });
        for (std::size_t i = 0; i < packets.size(); ++i) {
            const int offset = kFirstTeletextLine[0] + static_cast<int>(i % kTeletextLinesPerField);
            add(port.described.teletext.firstAncLine + static_cast<std::int32_t>(i), 0x41, 0x08,
                teletextAncWords(packets[i], subtitle, offset));
        }
    }
    for (const RawAncPacket& raw : port.described.anc) {
        if (raw.window.contains(slot.frame)) {
            add(raw.line, raw.did, raw.sdid, raw.words);
        }
    }
    for (auto& [line, packets] : lines) {
        for (Slot::Packet& packet : packets) {
            packet.header.wordCount = static_cast<std::uint32_t>(packet.words.size());
            packet.header.words = packet.words.data();
        }
    }
}

std::uint32_t SimulatedBoard::slotAncGetNbPackets(DeviceHandle slot, std::int32_t line, std::uint32_t samples,
                                                  std::int32_t& count) {
    std::lock_guard lock(m_mutex);
    Slot* locked = findSlot(slot);
    if (locked == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code =
            injected("VHD_SlotAncGetNbPackets", *locked->stream->port, locked->frame)) {
        return code;
    }
    if (line < 1 || line > kMaxLine || samples != device::kLumaSamples) {
        return device::kDeviceBadArgument;
    }
    buildAnc(*locked);
    const auto found = locked->anc->find(line);
    count = found == locked->anc->end() ? 0 : static_cast<std::int32_t>(found->second.size());
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::slotAncGetPacket(DeviceHandle slot, std::int32_t line, std::uint32_t samples,
                                               std::int32_t index, const device::AncPacket*& packet) {
    std::lock_guard lock(m_mutex);
    Slot* locked = findSlot(slot);
    if (locked == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injected("VHD_SlotAncGetPacket", *locked->stream->port, locked->frame)) {
        return code;
    }
    if (samples != device::kLumaSamples) {
        return device::kDeviceBadArgument;
    }
    buildAnc(*locked);
    const auto found = locked->anc->find(line);
    if (found == locked->anc->end() || index < 0 || static_cast<std::size_t>(index) >= found->second.size()) {
        return device::kDeviceNotFound;
    }
    packet = &found->second[static_cast<std::size_t>(index)].header;
    return device::kDeviceOk;
}

void SimulatedBoard::buildVbi(Slot& slot) {
    if (slot.vbi) {
        return;
    }
    const Port& port = *slot.stream->port;
    const FrameShape& shape = *slot.segment->shape;
    std::vector<VbiLineData> data;
    if (shape.ntsc()) {
        for (int field = 1; field <= 2; ++field) {
            const cc::Cea608Pair pair = port.captions->pairAt(field, slot.frame);
            data.push_back({kCaptionLines[field - 1], VbiService::Caption525, {pair.first, pair.second}});
        }
    } else {
        const std::vector<cc::TeletextPacket> packets = teletextPackets(
            port.described.teletext, slot.frame, static_cast<std::size_t>(2 * kTeletextLinesPerField));
        for (std::size_t i = 0; i < packets.size(); ++i) {
            const auto line = kFirstTeletextLine[i / kTeletextLinesPerField] +
                              static_cast<std::int32_t>(i % kTeletextLinesPerField);
            data.push_back({line, VbiService::TeletextB, {packets[i].begin(), packets[i].end()}});
        }
        if (const std::optional<std::uint16_t> wss = wssAt(port.described.wss, slot.frame)) {
            data.push_back({kWssLine,
                            VbiService::Wss625,
                            {static_cast<std::uint8_t>(*wss & 0xFF), static_cast<std::uint8_t>(*wss >> 8)}});
        }
    }
    slot.vbi = renderVbiLines(shape.ntsc() ? Scanning::Lines525 : Scanning::Lines625, data);
}

std::uint32_t SimulatedBoard::slotVbiGetLine(DeviceHandle slot, std::int32_t line, std::uint32_t selector,
                                             const std::uint8_t*& data, std::uint32_t& size) {
    std::lock_guard lock(m_mutex);
    Slot* locked = findSlot(slot);
    if (locked == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    if (const std::uint32_t code = injected("VHD_SlotVbiGetLine", *locked->stream->port, locked->frame)) {
        return code;
    }
    const FrameShape& shape = *locked->segment->shape;
    if (selector > 1 || line < 1 || line > (shape.ntsc() ? 525 : 625)) {
        return device::kDeviceBadArgument;
    }
    if (!locked->stream->vbiLinesSet || !shape.sd()) {
        return device::kDeviceNotFound;
    }
    buildVbi(*locked);
    const std::span<const std::uint8_t> samples = locked->vbi->line(line);
    data = samples.data();
    size = static_cast<std::uint32_t>(samples.size());
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::slotExtractAudio(DeviceHandle slot, device::AudioInfo& audio) {
    std::lock_guard lock(m_mutex);
    Slot* locked = findSlot(slot);
    if (locked == nullptr) {
        return device::kDeviceInvalidHandle;
    }
    const Port& port = *locked->stream->port;
    if (const std::uint32_t code = injected("VHD_SlotExtractAudio", port, locked->frame)) {
        return code;
    }
    fillAudio(port.described.audio, *locked->segment->shape, locked->frame - locked->segment->firstFrame,
              locked->frame, audio);
    return device::kDeviceOk;
}

std::uint32_t SimulatedBoard::getBlockSize(std::uint32_t format, std::uint32_t mode) {
    return format == device::kAudioFormat16Bit && mode == device::kAudioModeStereo ? 4 : 0;
}

std::uint32_t SimulatedBoard::getNbSamples(std::uint32_t boardStandard, std::uint32_t clockDivisor,
                                           std::uint32_t rate) {
    const std::optional<FrameShape> shape = shapeOf(boardStandard, clockDivisor);
    constexpr std::uint32_t kRates[] = {48000, 44100, 32000};
    if (!shape || rate > device::kAudioRate32kHz) {
        return 0;
    }
    return static_cast<std::uint32_t>(
        std::lround(static_cast<double>(kRates[rate]) * static_cast<double>(shape->rateDenominator) /
                    static_cast<double>(shape->rateNumerator)));
}

std::uint32_t SimulatedBoard::vbiDigitalize(const std::uint8_t* line, std::uint32_t size, bool highDefinition,
                                            float bitRate, std::uint8_t* out, std::uint32_t& bits) {
    if (line == nullptr || out == nullptr) {
        return device::kDeviceInvalidPointer;
    }
    return sliceBits({line, size}, highDefinition ? kHdSampleRate : kSdSampleRate, bitRate, out, bits);
}

}  // namespace ovtx::system::sdi::simulated_board::v1
