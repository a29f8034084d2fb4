#include "simulcast/simulcast_reader.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "simulcast/ring_layout.h"

namespace ovtx::simulcast::simulcast_channel::v1 {

namespace {

// How often a waiting read looks whether a new run has replaced the channel's objects.
constexpr std::chrono::milliseconds kReplacementCheck{100};
// How long an open waits for another reader's open to release the parameter mutex.
constexpr std::chrono::milliseconds kParameterLockTimeout{1000};

// A block that a writer filled: sizes that lay out a ring this process can map.
bool describesUsableRing(const SimulcastParams& block) {
    return block.numChunks > 0 && block.maxChunkBytes >= 0 && block.chunkStride >= block.maxChunkBytes &&
           dataRegionSize(block.numChunks, block.chunkStride) <= kMaxDataRegionBytes;
}

}  // namespace

SimulcastReader::~SimulcastReader() {
    close();
    detail::release(m_chunkEvent);
}

bool SimulcastReader::open(const char* name) {
    if (m_opened || name == nullptr) {
        return false;
    }
    if (!openObjects(name)) {
        closeObjects();
        return false;
    }
    m_name = name;
    m_following = true;
    m_reattached = false;
    return true;
}

template <typename Object>
bool SimulcastReader::check(const Object& object) {
    // ENOENT: a writer midway through its open, not yet a reason to tell anybody.
    if (!object.valid() && object.error() != ENOENT && m_openFailure.empty()) {
        m_openFailure = object.name() + ": " + std::strerror(object.error());
    }
    return object.valid();
}

bool SimulcastReader::openObjects(const char* name) {
    m_openFailure.clear();
    m_paramMapping = NamedMapping::createOrJoin(channelObjectName(name, kMapParamSuffix), kParamBlockBytes);
    if (!check(m_paramMapping)) {
        return false;
    }
    m_paramView = MappedView::map(m_paramMapping, kParamBlockBytes, MappedView::Access::ReadOnly);
    if (!m_paramView.valid() || !detail::isChunkAligned(m_paramView.data())) {
        return false;
    }
    m_paramMutex = NamedMutex::createOrJoin(channelObjectName(name, kMutexParamSuffix));
    if (!check(m_paramMutex)) {
        return false;
    }
    // Bounded, so that another reader stopped in the middle of its open holds nobody up for long.
    const WaitResult locked = m_paramMutex.lockFor(kParameterLockTimeout);
    if (locked != WaitResult::Acquired && locked != WaitResult::Abandoned) {
        return false;
    }
    const bool opened = openUnderParameterMutex(name);
    if (!m_paramMutex.unlock() || !opened) {
        return false;
    }
    // A writer that failed to make its event can't be followed.
    m_chunkEvent = NamedEvent::open(channelObjectName(name, kChunkReadySuffix));
    if (!check(m_chunkEvent)) {
        return false;
    }
    // A new run that made the objects afresh meanwhile: its own are to be opened, later.
    if (replaced()) {
        return false;
    }
    m_started = false;
    m_opened = true;
    return true;
}

bool SimulcastReader::openUnderParameterMutex(const char* name) {
    // A block that no writer has filled holds zeros and so not this name.
    if (std::strncmp(params()->name, name, kMaxChannelNameBytes) != 0) {
        return false;
    }
    return openDataRegion(name);
}

bool SimulcastReader::openDataRegion(const char* name) {
    const SimulcastParams block = *params();
    if (!describesUsableRing(block)) {
        return false;
    }
    const std::uint64_t size = dataRegionSize(block.numChunks, block.chunkStride);
    m_dataMapping = NamedMapping::createOrJoin(channelObjectName(name, kMapDataSuffix), size);
    if (!check(m_dataMapping)) {
        return false;
    }
    m_dataView = MappedView::map(m_dataMapping, size, MappedView::Access::ReadWrite, true);
    if (!m_dataView.valid() || !detail::isChunkAligned(m_dataView.data())) {
        return false;
    }
    m_sequenceTable = static_cast<const std::uint64_t*>(m_dataView.data());
    if (!detail::layOutChunks(m_dataView.data(), block.numChunks, block.chunkStride, m_chunks)) {
        return false;
    }
    m_numChunks = block.numChunks;
    m_chunkStride = block.chunkStride;
    // Open, not create: a writer midway through its open hasn't made the data mutex yet.
    m_dataMutex = NamedMutex::open(channelObjectName(name, kMutexDataSuffix));
    return check(m_dataMutex);
}

std::int32_t SimulcastReader::numChunks() const {
    return m_opened ? params()->numChunks : 0;
}

std::int32_t SimulcastReader::maxChunkBytes() const {
    return m_opened ? params()->maxChunkBytes : 0;
}

SimulcastReader::WaitResult SimulcastReader::lockData(std::uint32_t timeoutMs) {
    return m_dataMutex.lockFor(std::chrono::milliseconds(timeoutMs));
}

SimulcastReader::WaitResult SimulcastReader::waitForChunk(std::uint32_t timeoutMs) {
    return m_chunkEvent.wait(std::chrono::milliseconds(timeoutMs));
}

std::int32_t SimulcastReader::blockWriteIndex() const {
    const std::int32_t index = params()->writeIndex;
    // A writer restarted with another geometry would point outside the ring laid out here.
    return index >= 0 && index < m_numChunks ? index : -1;
}

bool SimulcastReader::replaced() const {
    return !m_paramMapping.isCurrent() || !m_dataMapping.isCurrent();
}

bool SimulcastReader::reattach() {
    closeObjects();
    if (!openObjects(m_name.c_str())) {
        closeObjects();
        return false;
    }
    m_reattached = true;
    return true;
}

bool SimulcastReader::read(void* buffer, std::int32_t numBytes, std::uint32_t timeoutMs, bool& discontinuity,
                           bool& timedOut) {
    timedOut = false;
    if (!m_opened && !m_following) {
        return false;
    }
    using Clock = std::chrono::steady_clock;
    const bool forever = timeoutMs == kWaitForever;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : timeoutMs);
    // Waits run in slices, so that a new run's objects are noticed whatever the caller's timeout.
    const auto slice = [&]() -> std::uint32_t {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        const auto bounded =
            forever ? kReplacementCheck : std::clamp(left, std::chrono::milliseconds(0), kReplacementCheck);
        return static_cast<std::uint32_t>(bounded.count());
    };
    for (;;) {
        if (m_opened) {
            if (numBytes < 0 || numBytes > params()->maxChunkBytes || numBytes > m_chunkStride) {
                return false;
            }
            const Step step = readOnce(buffer, numBytes, slice(), discontinuity);
            if (step != Step::TimedOut) {
                return step == Step::Delivered;
            }
            if (replaced()) {
                reattach();
            }
        } else if (!reattach()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(std::min<std::uint32_t>(slice(), 20)));
        }
        if (!forever && Clock::now() >= deadline) {
            timedOut = true;
            return false;
        }
    }
}

SimulcastReader::Step SimulcastReader::readOnce(void* buffer, std::int32_t numBytes, std::uint32_t timeoutMs,
                                                bool& discontinuity) {
    // Acquired and Abandoned both hold the mutex; a dead writer's ring is read as it stands.
    const auto acquire = [&]() {
        const WaitResult result = lockData(timeoutMs);
        if (result == WaitResult::Acquired || result == WaitResult::Abandoned) {
            return Step::Delivered;
        }
        return result == WaitResult::TimedOut ? Step::TimedOut : Step::Failed;
    };
    if (const Step locked = acquire(); locked != Step::Delivered) {
        return locked;
    }
    if (!m_started) {
        m_readIndex = blockWriteIndex();
        m_started = m_readIndex >= 0;
    }
    std::int32_t writeIndex = blockWriteIndex();
    while (m_started && m_readIndex == writeIndex) {
        m_dataMutex.unlock();
        const WaitResult woken = waitForChunk(timeoutMs);
        if (woken != WaitResult::Acquired) {
            return woken == WaitResult::TimedOut ? Step::TimedOut : Step::Failed;
        }
        if (const Step locked = acquire(); locked != Step::Delivered) {
            return locked;
        }
        writeIndex = blockWriteIndex();
    }
    if (!m_started || writeIndex < 0) {
        m_dataMutex.unlock();
        return Step::Failed;
    }
    const std::uint64_t sequence = m_sequenceTable[m_readIndex];
    discontinuity = m_reattached || static_cast<std::int64_t>(sequence) != m_lastSequence + 1;
    m_reattached = false;
    m_lastSequence = static_cast<std::int64_t>(sequence);
    std::memcpy(buffer, m_chunks[static_cast<std::size_t>(m_readIndex)], static_cast<std::size_t>(numBytes));
    m_readIndex = (m_readIndex + 1) % m_numChunks;
    return m_dataMutex.unlock() ? Step::Delivered : Step::Failed;
}

void SimulcastReader::close() {
    closeObjects();
    m_following = false;
}

void SimulcastReader::closeObjects() {
    detail::releaseChannel(m_dataMapping, m_chunks, m_dataMutex, m_dataView, m_paramMapping, m_paramMutex,
                           m_paramView);
    m_sequenceTable = nullptr;
    m_numChunks = 0;
    m_chunkStride = 0;
    m_opened = false;
    m_started = false;
}

}  // namespace ovtx::simulcast::simulcast_channel::v1
