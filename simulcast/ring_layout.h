// Internal helpers shared by the writer and the reader: checks and pointers into a mapped ring.
#pragma once

#include <cstdint>
#include <vector>

#include "simulcast/simulcast_params.h"
#include "system/ipc/named_objects.h"

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

// Gives up a channel's objects in the order both ends close them: data mapping, chunk list, data
// mutex, data view, parameter mapping, parameter mutex, parameter view.
template <typename Chunks>
void releaseChannel(system::ipc::v2::NamedMapping& dataMapping, Chunks& chunks,
                    system::ipc::v2::NamedMutex& dataMutex, system::ipc::v2::MappedView& dataView,
                    system::ipc::v2::NamedMapping& paramMapping, system::ipc::v2::NamedMutex& paramMutex,
                    system::ipc::v2::MappedView& paramView) {
    release(dataMapping);
    chunks.clear();
    release(dataMutex);
    release(dataView);
    release(paramMapping);
    release(paramMutex);
    release(paramView);
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
