// Figures about this process and the machine, for the once-a-second performance line.
//
// Rates (processor use) are measured between two samples: the reader takes a first sample when it
// is made, and each `sample()` reports the use since the previous one. Any figure that the system
// does not offer reads 0, except the frequency, which reads 100 where the kernel has no cpufreq.
//
//   auto stats = makeProcessStats();
//   ...
//   const ProcessSample sample = stats->sample();
#pragma once

#include <cstdint>
#include <memory>

namespace ovtx::system::process_stats::v1 {

struct ProcessSample {
    std::int64_t processCpuPercent = 0;  // of one processor, since the previous sample: 0 to 100 x processors
    std::int64_t totalCpuPercent = 0;    // of the whole machine, since the previous sample: 0 to 100
    std::int64_t frequencyPercent = 100;  // current processor frequency in percent of the maximum
    std::uint64_t workingSet = 0;         // resident bytes
    std::uint64_t privateBytes = 0;       // private (data and stack) bytes
    std::uint64_t virtualSize = 0;        // bytes of address space
    std::uint64_t handleCount = 0;        // open file descriptors
    std::uint32_t memoryLoadPercent = 0;  // machine memory in use, 0 to 100
};

struct IProcessStats {
    virtual ~IProcessStats() = default;
    virtual ProcessSample sample() = 0;
    // Logical processors the machine can hold.
    virtual unsigned logicalProcessors() const = 0;
};

// The reader of /proc and /sys for this process.
std::unique_ptr<IProcessStats> makeProcessStats();

}  // namespace ovtx::system::process_stats::v1
