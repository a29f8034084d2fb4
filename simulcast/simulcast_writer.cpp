#include "simulcast/simulcast_writer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

#include "simulcast/ring_layout.h"

namespace ovtx::simulcast::simulcast_channel::v1 {

using system::ipc::v2::WaitResult;

namespace {

bool sizesAreUsable(std::int32_t numChunks, std::int32_t maxChunkBytes) {
    if (numChunks <= 0 || maxChunkBytes < 0 ||
        maxChunkBytes > std::numeric_limits<std::int32_t>::max() - 16) {
        return false;
    }
    return dataRegionSize(numChunks, chunkStrideFor(maxChunkBytes)) <= kMaxDataRegionBytes;
}

}  // namespace

SimulcastWriter::~SimulcastWriter() {
    close();
}

bool SimulcastWriter::open(std::int32_t numChunks, std::int32_t maxChunkBytes, const char* name) {
    if (m_opened || name == nullptr) {
        return false;
    }
    m_failedObject.clear();
    m_error = 0;
    // Sizes whose ring could not be mapped or addressed fail before anything is touched.
    if (!sizesAreUsable(numChunks, maxChunkBytes) || !openParameterBlock(numChunks, maxChunkBytes, name) ||
        !openDataRegion(numChunks, chunkStrideFor(maxChunkBytes), name)) {
        close();
        return false;
    }
    m_writeIndex = 0;
    params()->writeIndex = 0;
    // Readers open the event last; a channel whose event can't be made can't be followed.
    const std::string eventName = channelObjectName(name, kChunkReadySuffix);
    m_chunkEvent = NamedEvent::createFresh(eventName, NamedEvent::Reset::Auto, false);
    if (!check(m_chunkEvent, eventName)) {
        close();
        return false;
    }
    m_readerHolds = false;
    m_opened = true;
    return true;
}

bool SimulcastWriter::fail(const std::string& object, int error) {
    if (m_failedObject.empty()) {
        m_failedObject = object;
        m_error = error;
    }
    return false;
}

template <typename Object>
bool SimulcastWriter::check(const Object& object, const std::string& name) {
    return object.valid() || fail(name, object.error());
}

bool SimulcastWriter::openParameterBlock(std::int32_t numChunks, std::int32_t maxChunkBytes,
                                         const char* name) {
    const std::string mappingName = channelObjectName(name, kMapParamSuffix);
    m_paramMapping = NamedMapping::createFresh(mappingName, kParamBlockBytes);
    if (!check(m_paramMapping, mappingName)) {
        return false;
    }
    m_paramView = MappedView::map(m_paramMapping, kParamBlockBytes, MappedView::Access::ReadWrite);
    if (!check(m_paramView, mappingName) || !detail::isChunkAligned(m_paramView.data())) {
        return false;
    }
    const std::string mutexName = channelObjectName(name, kMutexParamSuffix);
    m_paramMutex = NamedMutex::createFresh(mutexName);
    if (!check(m_paramMutex, mutexName) || !m_paramMutex.lock()) {
        return fail(mutexName, m_paramMutex.error());
    }
    SimulcastParams* block = params();
    // The name field is filled without a terminator; a longer name is cut at the field's end.
    const std::string_view nameBytes(name);
    std::memcpy(block->name, nameBytes.data(), std::min(nameBytes.size(), kMaxChannelNameBytes));
    block->numChunks = numChunks;
    block->maxChunkBytes = maxChunkBytes;
    block->chunkStride = chunkStrideFor(maxChunkBytes);
    return m_paramMutex.unlock() || fail(mutexName, m_paramMutex.error());
}

bool SimulcastWriter::openDataRegion(std::int32_t numChunks, std::int32_t chunkStride, const char* name) {
    const std::uint64_t size = dataRegionSize(numChunks, chunkStride);
    const std::string mappingName = channelObjectName(name, kMapDataSuffix);
    m_dataMapping = NamedMapping::createFresh(mappingName, size);
    if (!check(m_dataMapping, mappingName)) {
        return false;
    }
    m_dataView = MappedView::map(m_dataMapping, size, MappedView::Access::ReadWrite, true);
    if (!check(m_dataView, mappingName) || !detail::isChunkAligned(m_dataView.data())) {
        return false;
    }
    m_sequenceTable = static_cast<std::uint64_t*>(m_dataView.data());
    if (!detail::layOutChunks(m_dataView.data(), numChunks, chunkStride, m_chunks)) {
        return false;
    }
    m_numChunks = numChunks;
    const std::string mutexName = channelObjectName(name, kMutexDataSuffix);
    m_dataMutex = NamedMutex::createFresh(mutexName);
    if (!check(m_dataMutex, mutexName) || !m_dataMutex.lock()) {
        return fail(mutexName, m_dataMutex.error());
    }
    std::fill_n(m_sequenceTable, numChunks, std::uint64_t{0});
    return m_dataMutex.unlock() || fail(mutexName, m_dataMutex.error());
}

void* SimulcastWriter::beginChunk() {
    if (!m_opened) {
        return nullptr;
    }
    // A second begin without a commit keeps the chunk it already holds instead of deadlocking.
    if (!m_chunkTaken) {
        // While a reader keeps the mutex, each further chunk is only tried, so that the writer
        // keeps its pace on its other channels.
        const auto timeout = m_readerHolds ? std::chrono::milliseconds(0) : m_lockTimeout;
        const WaitResult result = m_dataMutex.lockFor(timeout);
        if (result == WaitResult::TimedOut) {
            m_readerHolds = true;
            ++m_skippedChunks;
            ++m_nextSequence;  // the gap in the numbers is the readers' discontinuity
            return nullptr;
        }
        if (result != WaitResult::Acquired && result != WaitResult::Abandoned) {
            return nullptr;
        }
        m_readerHolds = false;
        m_chunkTaken = true;
    }
    return m_chunks[static_cast<std::size_t>(m_writeIndex)];
}

void SimulcastWriter::commitChunk() {
    if (!m_opened || !m_chunkTaken) {
        return;
    }
    // The entry is valid before the index moves; the pulse comes after the release so that the
    // woken reader finds the mutex free.
    m_sequenceTable[m_writeIndex] = m_nextSequence;
    ++m_nextSequence;
    m_writeIndex = (m_writeIndex + 1) % m_numChunks;
    params()->writeIndex = m_writeIndex;
    m_chunkTaken = false;
    m_dataMutex.unlock();
    m_chunkEvent.pulse();
}

void SimulcastWriter::close() {
    detail::release(m_chunkEvent);
    if (!m_opened) {
        return;
    }
    if (m_chunkTaken) {
        m_dataMutex.unlock();
        m_chunkTaken = false;
    }
    detail::releaseChannel(m_dataMapping, m_chunks, m_dataMutex, m_dataView, m_paramMapping, m_paramMutex,
                           m_paramView);
    m_sequenceTable = nullptr;
    m_numChunks = 0;
    m_opened = false;
}

}  // namespace ovtx::simulcast::simulcast_channel::v1
