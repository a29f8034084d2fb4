// The shared format of a simulcast channel: object names, the parameter block and the data region.
//
// A channel named `N` is five named objects: the 144-byte parameter block `N_MAP_PARAM` and its
// mutex `N_MUTEX_PARAM`, the data region `N_MAP_DATA` and its mutex `N_MUTEX_DATA`, and the
// auto-reset event `N_CHUNK_READY` that the writer pulses after each chunk. The data region is a
// table of one 64-bit sequence number per chunk followed by the chunks themselves, each starting on
// a 16-byte boundary:
//
//   const std::int32_t stride = chunkStrideFor(1635);              // 1648
//   const auto size = dataRegionSize(32, stride);                  // 52992
//   const auto chunk1 = chunkOffset(32, stride, 1);                // 1904
//   const std::string event = channelObjectName("N", kChunkReadySuffix);  // "N_CHUNK_READY"
//
// Everything here lives in `ovtx::simulcast::simulcast_channel::v1`, as do the writer and reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ovtx::simulcast::simulcast_channel::v1 {

// Suffixes appended directly to a channel's name to form its object names.
inline constexpr std::string_view kMapParamSuffix = "_MAP_PARAM";
inline constexpr std::string_view kMutexParamSuffix = "_MUTEX_PARAM";
inline constexpr std::string_view kMapDataSuffix = "_MAP_DATA";
inline constexpr std::string_view kMutexDataSuffix = "_MUTEX_DATA";
inline constexpr std::string_view kChunkReadySuffix = "_CHUNK_READY";

// Longest channel name the parameter block holds (it carries no terminator).
inline constexpr std::size_t kMaxChannelNameBytes = 128;
// Chunks start on this boundary in the mapped view, so producers can use aligned vector stores.
inline constexpr std::size_t kChunkAlignment = 16;
// Size of one entry of the sequence table at the start of the data region.
inline constexpr std::size_t kSequenceEntryBytes = 8;

// The parameter block `N_MAP_PARAM`, exactly as it lies in shared memory (little-endian).
struct SimulcastParams {
    char name[kMaxChannelNameBytes];  // the channel's name, zero-padded, no terminator when full
    std::int32_t numChunks;           // chunks in the ring (even)
    std::int32_t maxChunkBytes;       // largest payload of a chunk
    std::int32_t chunkStride;         // maxChunkBytes rounded up to a multiple of 16
    std::int32_t writeIndex;          // index of the chunk that will be written next
};
static_assert(sizeof(SimulcastParams) == 144);
static_assert(offsetof(SimulcastParams, name) == 0);
static_assert(offsetof(SimulcastParams, numChunks) == 128);
static_assert(offsetof(SimulcastParams, maxChunkBytes) == 132);
static_assert(offsetof(SimulcastParams, chunkStride) == 136);
static_assert(offsetof(SimulcastParams, writeIndex) == 140);

// Size of the parameter block's mapping.
inline constexpr std::uint64_t kParamBlockBytes = sizeof(SimulcastParams);

// `name` followed directly by `suffix`, e.g. "N" + "_MAP_DATA".
inline std::string channelObjectName(std::string_view name, std::string_view suffix) {
    std::string result;
    result.reserve(name.size() + suffix.size());
    result.append(name).append(suffix);
    return result;
}

// (maxChunkBytes - 1) with its low four bits cleared, plus 16: 1635 gives 1648, 1024 stays 1024,
// 0 gives 0. Defined for 0 <= maxChunkBytes <= INT32_MAX - 16.
constexpr std::int32_t chunkStrideFor(std::int32_t maxChunkBytes) {
    return static_cast<std::int32_t>((static_cast<std::uint32_t>(maxChunkBytes - 1) & ~0xFu) + 16u);
}

// numChunks * stride + numChunks * 8: the bytes of the data region.
constexpr std::uint64_t dataRegionSize(std::int32_t numChunks, std::int32_t chunkStride) {
    const auto n = static_cast<std::uint64_t>(numChunks);
    return n * static_cast<std::uint64_t>(chunkStride) + n * kSequenceEntryBytes;
}

// Offset of chunk `index` in the data region: after the sequence table, `index` strides in.
constexpr std::uint64_t chunkOffset(std::int32_t numChunks, std::int32_t chunkStride, std::int32_t index) {
    return static_cast<std::uint64_t>(numChunks) * kSequenceEntryBytes +
           static_cast<std::uint64_t>(index) * static_cast<std::uint64_t>(chunkStride);
}

// The data region's size is a 32-bit quantity on the wire; larger rings can't be described.
inline constexpr std::uint64_t kMaxDataRegionBytes = 0xFFFFFFFFu;

static_assert(chunkStrideFor(1635) == 1648);
static_assert(chunkStrideFor(1024) == 1024);
static_assert(chunkStrideFor(0) == 0);
static_assert(dataRegionSize(32, chunkStrideFor(1635)) == 52992);
static_assert(chunkOffset(32, chunkStrideFor(1635), 1) == 1904);

}  // namespace ovtx::simulcast::simulcast_channel::v1
