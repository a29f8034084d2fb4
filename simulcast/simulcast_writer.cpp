#include "simulcast/simulcast_writer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>

#include "simulcast/ring_layout.h"

namespace ovtx::simulcast::simulcast_channel::v1 {

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
    // Sizes whose ring could not be mapped or addressed fail before anything is touched.
    if (!sizesAreUsable(numChunks, maxChunkBytes) || !openParameterBlock(numChunks, maxChunkBytes, name) ||
        !openDataRegion(numChunks, chunkStrideFor(maxChunkBytes), name)) {
        close();
        return false;
    }
    m_writeIndex = 0;
    params()->writeIndex = 0;
    m_opened = true;
    // A channel without its event still writes; readers then cannot open it.
    m_chunkEvent =
        NamedEvent::createOrJoin(channelObjectName(name, kChunkReadySuffix), NamedEvent::Reset::Auto, false);
    return true;
}

bool SimulcastWriter::openParameterBlock(std::int32_t numChunks, std::int32_t maxChunkBytes,
                                         const char* name) {
    m_paramMapping = NamedMapping::createOrJoin(channelObjectName(name, kMapParamSuffix), kParamBlockBytes);
    m_paramView = MappedView::map(m_paramMapping, kParamBlockBytes, MappedView::Access::ReadWrite);
    if (!m_paramView.valid() || !detail::isChunkAligned(m_paramView.data())) {
        return false;
    }
    m_paramMutex = NamedMutex::createOrJoin(channelObjectName(name, kMutexParamSuffix));
    if (!m_paramMutex.valid() || !m_paramMutex.lock()) {
        return false;
    }
    SimulcastParams* block = params();
    // The name field is filled without a terminator; a longer name is cut at the field's end.
    const std::string_view nameBytes(name);
    std::memcpy(block->name, nameBytes.data(), std::min(nameBytes.size(), kMaxChannelNameBytes));
    block->numChunks = numChunks;
    block->maxChunkBytes = maxChunkBytes;
    block->chunkStride = chunkStrideFor(maxChunkBytes);
    return m_paramMutex.unlock();
}

bool SimulcastWriter::openDataRegion(std::int32_t numChunks, std::int32_t chunkStride, const char* name) {
    const std::uint64_t size = dataRegionSize(numChunks, chunkStride);
    m_dataMapping = NamedMapping::createOrJoin(channelObjectName(name, kMapDataSuffix), size);
    if (!m_dataMapping.valid()) {
        return false;
    }
    m_dataView = MappedView::map(m_dataMapping, size, MappedView::Access::ReadWrite, true);
    if (!m_dataView.valid() || !detail::isChunkAligned(m_dataView.data())) {
        return false;
    }
    m_sequenceTable = static_cast<std::uint64_t*>(m_dataView.data());
    if (!detail::layOutChunks(m_dataView.data(), numChunks, chunkStride, m_chunks)) {
        return false;
    }
    m_numChunks = numChunks;
    m_dataMutex = NamedMutex::createOrJoin(channelObjectName(name, kMutexDataSuffix));
    if (!m_dataMutex.valid() || !m_dataMutex.lock()) {
        return false;
    }
    std::fill_n(m_sequenceTable, numChunks, std::uint64_t{0});
    return m_dataMutex.unlock();
}

void* SimulcastWriter::beginChunk() {
    if (!m_opened) {
        return nullptr;
    }
    // A second begin without a commit keeps the chunk it already holds instead of deadlocking.
    if (!m_chunkTaken) {
        if (!m_dataMutex.lock()) {
            return nullptr;
        }
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
