// Counts the heap allocations of a benchmark program, for benchmarks whose goal is none in the
// timed loop. It replaces the global operator new and delete, so exactly one source file of a
// program includes it.
//
//   const std::size_t before = allocationCount();
//   for (auto _ : state) { ... }
//   if (allocationCount() != before) { state.SkipWithError("allocated inside the loop"); }
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace ovtx::bench {

inline std::atomic<std::size_t> g_allocations{0};

inline std::size_t allocationCount() {
    return g_allocations.load(std::memory_order_relaxed);
}

}  // namespace ovtx::bench

// Kept out of line: inlined into its callers (-O3), GCC would pair the malloc and free itself and
// warn of a mismatch that isn't there.
__attribute__((noinline)) void* operator new(std::size_t size) {
    ovtx::bench::g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* memory) noexcept {
    std::free(memory);
}
__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
