// A capture board that exists only in software: the device layer's operations answered from a
// scenario (see scenario.h and docs/simulated-board.md), so that the real daemon can run its
// capture path, end to end, on a machine without a board.
//
// The board runs on a clock of its own that starts when it is made, sped up by the scenario's
// speed factor: each port's signal moves along its timeline in input frames, slots arrive at the
// pace of the input's frame rate, and a slot lock waits for the next one up to the stream's
// timeout. A port's stream is claimed machine-wide, in the name of the board's serial and the
// port, so that a second process opening it gets code 18 as from a real board.
//
//   SimulatedBoard board(loadScenario("tools/scenarios/hd_1080p25.json"));
//   DeviceHandle handle = openBoard(board, 0);
//   DeviceHandle stream = openStream(board, handle, kPortNumbers[1].streamType);
//   board.setStreamProperty(stream, kStreamVideoStandard, 0);
//   board.startStream(stream);
//   DeviceHandle slot;
//   if (board.lockSlotHandle(stream, slot) == kDeviceOk) { ...; board.unlockSlotHandle(slot); }
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "system/ipc/process_claim.h"
#include "system/sdi/deltacast_io/device_api.h"
#include "system/sdi/simulated_board/scenario.h"
#include "system/sdi/simulated_board/signal_content.h"
#include "system/sdi/simulated_board/vbi_lines.h"

namespace ovtx::system::sdi::simulated_board::v1 {

// The board's time line in simulated nanoseconds since it was made: by default real time sped
// up by the scenario's factor; tests give their own.
class BoardClock {
  public:
    virtual ~BoardClock() = default;
    virtual std::int64_t nowNs() = 0;
    virtual void sleepFor(std::int64_t nanoseconds) = 0;
};

class SimulatedBoard final : public deltacast_io::v1::DeviceApi {
  public:
    using DeviceHandle = deltacast_io::v1::DeviceHandle;

    explicit SimulatedBoard(Scenario scenario, std::unique_ptr<BoardClock> clock = nullptr);
    ~SimulatedBoard() override;

    // The machine-wide name under which a process holds the stream of `port` of the board with
    // that serial.
    static std::string claimName(std::uint64_t serial, std::uint32_t port);

    std::uint32_t getApiInfo(std::uint32_t& apiVersion, std::uint32_t& boardCount) override;
    std::uint32_t getBoardInfoEx(std::uint32_t boardIndex, deltacast_io::v1::BoardInfoEx& info) override;
    std::uint32_t openBoardHandle(std::uint32_t boardIndex, DeviceHandle& board) override;
    std::uint32_t closeBoardHandle(DeviceHandle board) override;
    std::uint32_t getBoardProperty(DeviceHandle board, std::uint32_t property, std::uint32_t& value) override;
    std::uint32_t openStreamHandle(DeviceHandle board, std::uint32_t streamType, std::uint32_t processingMode,
                                   DeviceHandle& stream) override;
    std::uint32_t closeStreamHandle(DeviceHandle stream) override;
    std::uint32_t startStream(DeviceHandle stream) override;
    std::uint32_t stopStream(DeviceHandle stream) override;
    std::uint32_t setStreamProperty(DeviceHandle stream, std::uint32_t property,
                                    std::uint32_t value) override;
    std::uint32_t getStreamProperty(DeviceHandle stream, std::uint32_t property,
                                    std::uint32_t& value) override;
    std::uint32_t vbiSetCaptureLines(DeviceHandle stream,
                                     const deltacast_io::v1::VbiLineTable& lines) override;
    std::uint32_t lockSlotHandle(DeviceHandle stream, DeviceHandle& slot) override;
    std::uint32_t unlockSlotHandle(DeviceHandle slot) override;
    std::uint32_t getSlotBuffer(DeviceHandle slot, std::uint32_t bufferType, std::uint8_t*& buffer,
                                std::uint32_t& size) override;
    std::uint32_t getSlotSystemTime(DeviceHandle slot, std::uint64_t& time) override;
    std::uint32_t slotExtractTimecode(DeviceHandle slot, deltacast_io::v1::TimecodeRecord& timecode) override;
    std::uint32_t slotAncGetNbPackets(DeviceHandle slot, std::int32_t line, std::uint32_t samples,
                                      std::int32_t& count) override;
    std::uint32_t slotAncGetPacket(DeviceHandle slot, std::int32_t line, std::uint32_t samples,
                                   std::int32_t index, const deltacast_io::v1::AncPacket*& packet) override;
    std::uint32_t slotVbiGetLine(DeviceHandle slot, std::int32_t line, std::uint32_t selector,
                                 const std::uint8_t*& data, std::uint32_t& size) override;
    std::uint32_t slotExtractAudio(DeviceHandle slot, deltacast_io::v1::AudioInfo& audio) override;
    std::uint32_t getBlockSize(std::uint32_t format, std::uint32_t mode) override;
    std::uint32_t getNbSamples(std::uint32_t boardStandard, std::uint32_t clockDivisor,
                               std::uint32_t rate) override;
    std::uint32_t vbiDigitalize(const std::uint8_t* line, std::uint32_t size, bool highDefinition,
                                float bitRate, std::uint8_t* out, std::uint32_t& bits) override;

  private:
    struct Segment;
    struct Port;
    struct Stream;
    struct Slot;

    std::int64_t nowNs() const;
    void sleepSimulated(std::int64_t nanoseconds, std::unique_lock<std::mutex>& lock) const;
    std::uint32_t injected(const char* operation) const;
    std::uint32_t injected(const char* operation, const Port& port, std::int64_t frame) const;
    std::uint32_t injectedNow(const char* operation, const Stream& stream) const;
    Stream* findStream(DeviceHandle stream);
    Slot* findSlot(DeviceHandle slot);
    std::optional<std::int64_t> nextSlotFrame(Stream& stream, std::int64_t latest);
    void buildAnc(Slot& slot);
    void buildVbi(Slot& slot);

    Scenario m_scenario;
    std::unique_ptr<BoardClock> m_clock;
    std::int64_t m_powerOnMicroseconds;
    std::vector<std::unique_ptr<Port>> m_ports;  // one per input of the board
    std::map<DeviceHandle, std::unique_ptr<Stream>> m_streams;
    std::map<DeviceHandle, std::unique_ptr<Slot>> m_slots;
    DeviceHandle m_nextHandle = 100;
    PictureRenderer m_pictures;
    mutable std::mutex m_mutex;
};

}  // namespace ovtx::system::sdi::simulated_board::v1
