#include "simulcast/run_objects.h"

#include <cstring>
#include <stdexcept>

namespace ovtx::simulcast::capture_records::v1 {

using system::ipc::v2::NamedEvent;
using system::ipc::v2::WaitResult;

namespace {

constexpr std::chrono::milliseconds kFormatBlockLockTimeout{1000};
constexpr std::chrono::seconds kSkipLogInterval{10};

}  // namespace

ChannelSize runChannelSize(RunKind kind, RunChannel channel, std::int64_t pictureBytes) {
    const bool capture = kind == RunKind::Capture;
    switch (channel) {
        case RunChannel::Video:
            return capture ? ChannelSize{kCaptureVideoChunks,
                                         static_cast<std::int32_t>(pictureBytes + kCaptureVideoExtraBytes)}
                           : ChannelSize{kPatternVideoChunks,
                                         static_cast<std::int32_t>(pictureBytes + kPatternVideoExtraBytes)};
        case RunChannel::Audio:
            return capture ? kCaptureAudioSize : kPatternAudioSize;
        case RunChannel::Teletext:
            return capture ? kCaptureTeletextSize : kPatternTeletextSize;
        case RunChannel::Caption:
            return capture ? kCaptureCaptionSize : kPatternCaptionSize;
    }
    throw std::logic_error("unknown run channel");
}

std::string_view runChannelPrefix(RunChannel channel) {
    switch (channel) {
        case RunChannel::Video:
            return kVideoPrefix;
        case RunChannel::Audio:
            return kAudioPrefix;
        case RunChannel::Teletext:
            return kTeletextPrefix;
        case RunChannel::Caption:
            return kCaptionPrefix;
    }
    throw std::logic_error("unknown run channel");
}

RunObjects::RunObjects(RunKind kind, std::string portName, log::i_logger::v0::ILogger& logger)
    : m_kind(kind), m_portName(std::move(portName)), m_logger(logger) {
    for (RunChannel channel : kRunChannelOrder) {
        m_channels[index(channel)].name =
            capture_records::v1::channelName(runChannelPrefix(channel), m_portName);
    }
}

RunObjects::~RunObjects() {
    close();
}

void RunObjects::openStopEvent() {
    m_stopEvent = NamedEvent::createOrJoin(capture_records::v1::channelName(kStopEventPrefix, m_portName),
                                           NamedEvent::Reset::Manual, false);
    if (!m_stopEvent.valid()) {
        throw std::runtime_error("Can't create stop event " + m_stopEvent.name() + ": " +
                                 std::strerror(m_stopEvent.error()));
    }
}

void RunObjects::clearStaleStop() {
    if (stopRequested()) {
        m_stopEvent.reset();
        m_logger.Log(1, "Stop event %s was still set from an earlier run; cleared",
                     m_stopEvent.name().c_str());
    }
}

bool RunObjects::stopRequested() {
    return m_stopEvent.valid() && m_stopEvent.wait(std::chrono::milliseconds(0)) == WaitResult::Acquired;
}

void RunObjects::requestStop() noexcept {
    if (m_stopEvent.valid()) {
        m_stopEvent.set();
    }
}

void RunObjects::openClockBlock() {
    m_clockBlock = std::make_unique<SharedBlock>(capture_records::v1::channelName(kClockPrefix, m_portName),
                                                 kClockBlockBytes);
}

void RunObjects::openFormatBlock(std::uint32_t declaredBytes) {
    m_formatBlock = std::make_unique<SharedBlock>(
        capture_records::v1::channelName(kVideoFormatPrefix, m_portName), declaredBytes);
}

void RunObjects::openBlocks(std::int32_t formatCode, std::int32_t bitDepth,
                            std::chrono::milliseconds lockTimeout) {
    m_lockTimeout = lockTimeout;
    if (m_kind == RunKind::Capture) {
        openClockBlock();
        openFormatBlock(kCaptureFormatBlockBytes);
        writeFormat(formatCode, bitDepth);
        return;
    }
    // Declared with 4 bytes, written with 8: the mapping's page has room for both fields.
    openFormatBlock(kPatternFormatBlockBytes);
    writeFormat(formatCode, bitDepth);
    openClockBlock();
    publishClock(0);
}

void RunObjects::writeFormat(std::int32_t formatCode, std::int32_t bitDepth) {
    if (!m_formatBlock) {
        return;
    }
    const bool locked = m_formatBlock->lockFor(kFormatBlockLockTimeout);
    if (!locked) {
        m_logger.Log(1, "Format block of port %s held by another process; written without its mutex",
                     m_portName.c_str());
    }
    *static_cast<FormatBlock*>(m_formatBlock->view()) = {formatCode, bitDepth};
    if (locked) {
        m_formatBlock->unlock();
    }
}

void RunObjects::publishClock(std::int64_t start) {
    if (m_clockBlock && m_clockBlock->lockFor(m_lockTimeout)) {
        static_cast<ClockBlock*>(m_clockBlock->view())->clock = start;
        m_clockBlock->unlock();
    }
}

std::optional<RunChannel> RunObjects::openChannels(std::int64_t pictureBytes,
                                                   std::chrono::milliseconds lockTimeout,
                                                   const std::function<void(RunChannel)>& opened) {
    for (RunChannel channel : kRunChannelOrder) {
        Channel& entry = m_channels[index(channel)];
        const ChannelSize size = runChannelSize(m_kind, channel, pictureBytes);
        entry.writer.setLockTimeout(lockTimeout);
        if (!entry.writer.open(size.numChunks, size.chunkBytes, entry.name.c_str())) {
            return channel;
        }
        if (opened) {
            opened(channel);
        }
    }
    return std::nullopt;
}

std::string RunObjects::failure(RunChannel channel) const {
    const Channel& entry = m_channels[index(channel)];
    if (entry.writer.error() == 0) {
        return {};
    }
    return entry.name + ": " + entry.writer.failedObject() + ": " + std::strerror(entry.writer.error());
}

bool RunObjects::followsSkips(RunChannel channel) {
    Channel& entry = m_channels[index(channel)];
    const std::uint64_t skipped = entry.writer.skippedChunks();
    const bool follows = skipped != entry.publishedSkips;
    entry.publishedSkips = skipped;
    return follows;
}

void RunObjects::logSkips() {
    const auto now = std::chrono::steady_clock::now();
    for (Channel& entry : m_channels) {
        const std::uint64_t skipped = entry.writer.skippedChunks();
        if (skipped == entry.loggedSkips || now - entry.lastLog < kSkipLogInterval) {
            continue;
        }
        m_logger.Log(1, "Simulcast %s: a reader held the channel for over a frame, %llu record(s) skipped",
                     entry.name.c_str(), static_cast<unsigned long long>(skipped - entry.loggedSkips));
        entry.loggedSkips = skipped;
        entry.lastLog = now;
    }
}

void RunObjects::closeChannels() {
    for (auto channel = kRunChannelOrder.rbegin(); channel != kRunChannelOrder.rend(); ++channel) {
        m_channels[index(*channel)].writer.close();
    }
}

void RunObjects::closeStopEvent() {
    m_stopEvent.close();
}

void RunObjects::close() {
    closeChannels();
    m_clockBlock.reset();
    m_formatBlock.reset();
    closeStopEvent();
}

}  // namespace ovtx::simulcast::capture_records::v1
