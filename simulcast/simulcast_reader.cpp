#include "simulcast/simulcast_reader.h"

#include <chrono>
#include <cstring>

#include "simulcast/ring_layout.h"

namespace ovtx::simulcast::simulcast_channel::v1 {

namespace {

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
    m_paramMapping = NamedMapping::createOrJoin(channelObjectName(name, kMapParamSuffix), kParamBlockBytes);
    m_paramView = MappedView::map(m_paramMapping, kParamBlockBytes, MappedView::Access::ReadOnly);
    bool ok = m_paramView.valid() && detail::isChunkAligned(m_paramView.data());
    if (ok) {
        m_paramMutex = NamedMutex::createOrJoin(channelObjectName(name, kMutexParamSuffix));
        ok = m_paramMutex.valid() && m_paramMutex.lock();
    }
    if (ok) {
        ok = openUnderParameterMutex(name);
        ok = m_paramMutex.unlock() && ok;
    }
    if (ok) {
        // A writer that failed to make its event can't be followed.
        m_chunkEvent = NamedEvent::open(channelObjectName(name, kChunkReadySuffix));
        ok = m_chunkEvent.valid();
    }
    if (!ok) {
        close();
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
    return m_dataMutex.valid();
}

std::int32_t SimulcastReader::numChunks() const {
    return m_opened ? params()->numChunks : 0;
}

std::int32_t SimulcastReader::maxChunkBytes() const {
    return m_opened ? params()->maxChunkBytes : 0;
}

SimulcastReader::WaitResult SimulcastReader::lockData(std::uint32_t timeoutMs) {
    if (timeoutMs == kWaitForever) {
        return m_dataMutex.lock() ? WaitResult::Acquired : WaitResult::Failed;
    }
    return m_dataMutex.lockFor(std::chrono::milliseconds(timeoutMs));
}

SimulcastReader::WaitResult SimulcastReader::waitForChunk(std::uint32_t timeoutMs) {
    if (timeoutMs != kWaitForever) {
        return m_chunkEvent.wait(std::chrono::milliseconds(timeoutMs));
    }
    WaitResult result = WaitResult::TimedOut;
    while (result == WaitResult::TimedOut) {
        result = m_chunkEvent.wait(std::chrono::hours(1));
    }
    return result;
}

std::int32_t SimulcastReader::blockWriteIndex() const {
    const std::int32_t index = params()->writeIndex;
    // A writer restarted with another geometry would point outside the ring laid out here.
    return index >= 0 && index < m_numChunks ? index : -1;
}

bool SimulcastReader::read(void* buffer, std::int32_t numBytes, std::uint32_t timeoutMs, bool& discontinuity,
                           bool& timedOut) {
    timedOut = false;
    if (!m_opened || numBytes < 0 || numBytes > params()->maxChunkBytes || numBytes > m_chunkStride) {
        return false;
    }
    // Acquired and Abandoned both hold the mutex; a dead writer's ring is read as it stands.
    const auto acquire = [&]() {
        const WaitResult result = lockData(timeoutMs);
        timedOut = result == WaitResult::TimedOut;
        return result == WaitResult::Acquired || result == WaitResult::Abandoned;
    };
    if (!acquire()) {
        return false;
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
            timedOut = woken == WaitResult::TimedOut;
            return false;
        }
        if (!acquire()) {
            return false;
        }
        writeIndex = blockWriteIndex();
    }
    if (!m_started || writeIndex < 0) {
        m_dataMutex.unlock();
        return false;
    }
    const std::uint64_t sequence = m_sequenceTable[m_readIndex];
    discontinuity = static_cast<std::int64_t>(sequence) != m_lastSequence + 1;
    m_lastSequence = static_cast<std::int64_t>(sequence);
    std::memcpy(buffer, m_chunks[static_cast<std::size_t>(m_readIndex)], static_cast<std::size_t>(numBytes));
    m_readIndex = (m_readIndex + 1) % m_numChunks;
    return m_dataMutex.unlock();
}

void SimulcastReader::close() {
    detail::releaseChannel(m_dataMapping, m_chunks, m_dataMutex, m_dataView, m_paramMapping, m_paramMutex,
                           m_paramView);
    m_sequenceTable = nullptr;
    m_numChunks = 0;
    m_chunkStride = 0;
    m_opened = false;
    m_started = false;
}

}  // namespace ovtx::simulcast::simulcast_channel::v1
