// Block fills of picture samples at the speed of memory.
//
// A picture chunk is far larger than the caches and is read next by another process, so the
// fills write around the cache (non-temporal stores) where the processor has them: this saves
// reading every line into the cache before it is overwritten.
//
//   fillWords(reinterpret_cast<std::uint16_t*>(planes), samples, 960);   // 10-bit white
#pragma once

#include <cstddef>
#include <cstdint>

namespace ovtx::pattern::pattern_source::v1 {

// Sets `count` bytes from `data` to `value`.
void fillBytes(std::uint8_t* data, std::size_t count, std::uint8_t value);

// Sets `count` 16-bit words from `data` (2-byte aligned) to `value`.
void fillWords(std::uint16_t* data, std::size_t count, std::uint16_t value);

}  // namespace ovtx::pattern::pattern_source::v1
