// Internal helpers shared by the writer and the reader: checks and pointers into a mapped ring.
#pragma once

#include <cstdint>
#include <vector>

#include "simulcast/simulcast_params.h"

namespace ovtx::simulcast::simulcast_channel::v1::detail {

// Gives up one named object or view and leaves the field empty; an empty field is left alone.
template <typename Handle>
void release(Handle& handle) {
    if (handle.valid()) {
        if constexpr (requires { handle.unmap(); }) {
            handle.unmap();
        } else {
            handle.close();
        }
    }
    handle = Handle();
}

inline bool isChunkAligned(const void* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer) % kChunkAlignment == 0;
}

// Fills `chunks` with the start of each chunk of a data view; false when one of them is off its
// 16-byte boundary (an odd chunk count).
inline bool layOutChunks(void* dataView, std::int32_t numChunks, std::int32_t chunkStride,
                         std::vector<std::uint8_t*>& chunks) {
    chunks.resize(static_cast<std::size_t>(numChunks));
    auto* base = static_cast<std::uint8_t*>(dataView);
    for (std::int32_t i = 0; i < numChunks; ++i) {
        chunks[static_cast<std::size_t>(i)] = base + chunkOffset(numChunks, chunkStride, i);
        if (!isChunkAligned(chunks[static_cast<std::size_t>(i)])) {
            return false;
        }
    }
    return true;
}

}  // namespace ovtx::simulcast::simulcast_channel::v1::detail
