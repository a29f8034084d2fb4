// The capture engine of a run with a board.
//
// The constructor turns the run's parameters into an open board, a configured input stream and
// the run's public objects (stop event, clock and format blocks, four channels); `run` then takes
// the board's slots one by one until the named stop event is set, publishing for each slot an
// audio, a video, a teletext and a caption record. While the input carries another format than
// the one asked for, each pass publishes a video marker (the header alone, with its standard
// mismatch byte set) instead; when the asked format returns, the stream is set up again and
// started.
//
//   SdiTap::Environment environment{deviceApiFromEnvironment(), portName};
//   captureEngine.store(new SdiTap(parameters, logger, environment));  // a console stop reaches it
//   captureEngine.load()->run();   // on the main thread, until the stop event is set
//
// Every message goes through the engine's report call (engine_report.h): forced ones always,
// verbose ones with -print. Device failures of the set-up throw `DeltacastException`; the
// engine's own refusals throw `SdiTapException`. Other threads read what the input carries and
// the audio statistics through `CaptureState`.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "app/audio_extraction.h"
#include "app/caption_extraction.h"
#include "app/capture_state.h"
#include "app/engine_report.h"
#include "app/format_detector.h"
#include "app/run_parameters.h"
#include "app/teletext_extraction.h"
#include "app/video_extraction.h"
#include "app/wss_reading.h"
#include "encoding/sdi/sdi_common.h"
#include "log/i_logger.h"
#include "simulcast/run_objects.h"
#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::app::sdi_tap::v1 {

class SdiTap final : public CaptureState {
  public:
    struct Environment {
        system::sdi::deltacast_io::v1::DeviceApi& api;
        // Ends every public name of the run: "4K" or the port in decimal.
        std::string portName;
        // Runs once the input stream is open, before any public object but the stop event is
        // touched: the program takes the port's claim there, and throws when another run has it.
        std::function<void()> streamOpened = {};
        // The waits of the set-up (800 ms after the board opens) and of a marker pass (1 ms).
        std::function<void(std::chrono::milliseconds)> pause = {};
    };

    // The set-up, step by step; see the file comment. Throws on the failures named there.
    SdiTap(const RunParameters& parameters, log::i_logger::v0::ILogger& logger, Environment environment);
    // Gives up the channels, the working buffers and the stop event, then closes the stream and
    // the board.
    ~SdiTap() override;
    SdiTap(const SdiTap&) = delete;
    SdiTap& operator=(const SdiTap&) = delete;

    // Starts the stream (unless the input disagrees) and runs passes until the stop event is set;
    // then stops the stream and returns. Exceptions of a slot leave with the stream running.
    void run();
    // The two halves of run, for callers that drive the passes themselves.
    void startRun();
    // One pass: detection, then one slot, a restart or a marker, then the stop poll. True when
    // the stop event was set and the stream has been stopped.
    bool runPass();

    // Sets the stop event. Async-signal-safe: the console control handler calls it.
    void requestStop() noexcept;

    bool standardMismatch() const { return m_standardMismatch; }
    std::int64_t slotFrameNumber() const { return m_slotFrameNumber; }

    // CaptureState
    std::int32_t detectedFormat() const override;
    std::int32_t quadrantFormat(std::size_t quadrant) const override;
    AudioPairStatistic audioStatistic(std::size_t pair) const override;

  private:
    using DeviceHandle = system::sdi::deltacast_io::v1::DeviceHandle;
    using RunChannel = simulcast::capture_records::v1::RunChannel;

    void openInputStream(const system::sdi::deltacast_io::v1::BoardInfo& boardInfo);
    void setStandardAndInterface();
    void openPublicObjects();
    void setBufferLayout();
    void setVbiLines();
    void setTimeout();
    void restart();
    void publishMarker();
    void handleSlot();
    void readSlotTime(DeviceHandle slot, std::int64_t& elapsed);
    void numberFrame(DeviceHandle slot, std::int64_t elapsed);
    void extractAudio(DeviceHandle slot, std::int64_t start, std::int64_t end);
    void extractVideo(DeviceHandle slot, AspectRatio aspect, std::int64_t start, std::int64_t end);
    void fillVideoHeader(std::uint8_t* chunk, AspectRatio aspect, std::int64_t start, std::int64_t end);
    void pause(std::chrono::milliseconds duration);

    // The ancillary data of a slot (captions, teletext, WSS), each a step of its own.
    // Publishes the slot's teletext record.
    void extractTeletext(DeviceHandle slot, std::int64_t start, std::int64_t end);
    // Publishes the slot's caption record.
    void extractCaptions(DeviceHandle slot, std::int64_t start, std::int64_t end);
    // The aspect ratio that the WSS line of an SD slot signals.
    AspectRatio readWss(DeviceHandle slot);

    EngineReport m_report;
    log::i_logger::v0::ILogger& m_logger;
    system::sdi::deltacast_io::v1::DeviceApi& m_api;
    Environment m_environment;
    RunParameters m_parameters;
    // Closed last, the stream before the board, also when the set-up fails half-way.
    struct DeviceHandles {
        system::sdi::deltacast_io::v1::DeviceApi& api;
        DeviceHandle board = system::sdi::deltacast_io::v1::kNoHandle;
        DeviceHandle stream = system::sdi::deltacast_io::v1::kNoHandle;
        ~DeviceHandles();
    };
    DeviceHandles m_handles;
    FormatDetector m_detector;
    encoding::sdi::sdi_common::v2::SdiFormatInfo m_info;
    std::unique_ptr<AudioExtraction> m_audio;
    bool m_planarCapable = false;
    simulcast::capture_records::v1::RunObjects m_objects;
    std::chrono::milliseconds m_framePeriod;
    system::sdi::deltacast_io::v1::VbiLineTable m_vbiLines{};
    std::int32_t m_wssLineIndex = -1;
    std::int32_t m_ancLineIndex = -1;
    std::unique_ptr<VideoExtraction> m_video;

    bool m_standardMismatch = false;
    bool m_discontinuityPending = false;
    bool m_discontinuity = false;
    std::int64_t m_slotFrameNumber = 0;
    std::int64_t m_lastSlotTime = 0;
    std::uint32_t m_slotCounter = 0;
    std::uint32_t m_slotsDropped = 0;
    bool m_timecodeSeen = false;
    AspectRatio m_aspect;

    // The ancillary steps. The teletext step keeps the stream's descriptor list for the engine's
    // life; the aspect that WSS last signalled stays apart from the one of each frame, since a
    // line that can't be read gives 4:3 for its frame alone.
    TeletextExtraction m_teletext{m_api, m_report};
    CaptionExtraction m_captions{m_api, m_report};
    AspectRatio m_wssAspect = kAspect4x3;
};

}  // namespace ovtx::app::sdi_tap::v1
