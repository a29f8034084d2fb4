#include "system/process_stats/process_stats.h"

#include <unistd.h>

#include <time.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace ovtx::system::process_stats::v1 {

namespace {

struct CpuTimes {
    std::uint64_t busy = 0;
    std::uint64_t total = 0;
};

// Busy and total clock ticks of the whole machine, from the first line of /proc/stat.
CpuTimes readMachineTimes() {
    std::ifstream in("/proc/stat");
    std::string label;
    in >> label;
    CpuTimes times;
    if (label != "cpu") {
        return times;
    }
    std::uint64_t value = 0;
    for (int field = 0; field < 10 && in >> value; ++field) {
        // Fields 8 and 9 (guest time) are already counted in user and nice.
        if (field >= 8) {
            continue;
        }
        times.total += value;
        const bool idle = field == 3 || field == 4;  // idle, iowait
        if (!idle) {
            times.busy += value;
        }
    }
    return times;
}

// User plus system clock ticks of this process, from /proc/self/stat.
std::uint64_t readProcessTicks() {
    std::ifstream in("/proc/self/stat");
    std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // The command name may hold blanks and parentheses: the fields start after the last ')'.
    const auto close = content.rfind(')');
    if (close == std::string::npos) {
        return 0;
    }
    std::istringstream fields(content.substr(close + 1));
    std::string field;
    std::uint64_t utime = 0;
    std::uint64_t stime = 0;
    // After the name come state (3) ... utime (14) and stime (15).
    for (int number = 3; number <= 15 && fields >> field; ++number) {
        if (number == 14) {
            utime = std::stoull(field);
        } else if (number == 15) {
            stime = std::stoull(field);
        }
    }
    return utime + stime;
}

// A "Key:   1234 kB" figure of a /proc status file, in bytes.
std::uint64_t kilobyteField(const std::string& content, const std::string& key) {
    std::string label(1, '\n');
    label.append(key).push_back(':');
    const auto at = content.find(label);
    if (at == std::string::npos) {
        return 0;
    }
    std::istringstream value(content.substr(at + key.size() + 2));
    std::uint64_t kilobytes = 0;
    value >> kilobytes;
    return kilobytes * 1024;
}

std::string readAll(const char* path) {
    std::ifstream in(path);
    std::ostringstream content;
    content << '\n' << in.rdbuf();
    return content.str();
}

std::uint64_t countOpenDescriptors() {
    std::error_code error;
    std::uint64_t count = 0;
    for (std::filesystem::directory_iterator it("/proc/self/fd", error), end; !error && it != end;
         it.increment(error)) {
        ++count;
    }
    // The directory listing holds a descriptor of its own while it runs.
    return count > 0 ? count - 1 : 0;
}

std::uint64_t readNumber(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::uint64_t value = 0;
    in >> value;
    return value;
}

// Mean current frequency over the processors in percent of their maximum; 100 without cpufreq.
std::int64_t readFrequencyPercent() {
    std::uint64_t current = 0;
    std::uint64_t maximum = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator it("/sys/devices/system/cpu", error), end; !error && it != end;
         it.increment(error)) {
        const auto cpufreq = it->path() / "cpufreq";
        const std::uint64_t cpuMaximum = readNumber(cpufreq / "cpuinfo_max_freq");
        const std::uint64_t cpuCurrent = readNumber(cpufreq / "scaling_cur_freq");
        if (cpuMaximum > 0 && cpuCurrent > 0) {
            current += cpuCurrent;
            maximum += cpuMaximum;
        }
    }
    return maximum > 0 ? static_cast<std::int64_t>(current * 100 / maximum) : 100;
}

std::uint64_t elapsedTicks() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    static const long ticksPerSecond = sysconf(_SC_CLK_TCK);
    return static_cast<std::uint64_t>(now.tv_sec) * ticksPerSecond +
           static_cast<std::uint64_t>(now.tv_nsec) * ticksPerSecond / 1000000000;
}

class ProcStats : public IProcessStats {
  public:
    ProcStats()
        : m_processors(static_cast<unsigned>(std::max(1L, sysconf(_SC_NPROCESSORS_CONF)))),
          m_lastMachine(readMachineTimes()),
          m_lastProcessTicks(readProcessTicks()),
          m_lastElapsedTicks(elapsedTicks()) {}

    unsigned logicalProcessors() const override { return m_processors; }

    ProcessSample sample() override {
        ProcessSample sample;
        sampleCpu(sample);
        const std::string status = readAll("/proc/self/status");
        sample.workingSet = kilobyteField(status, "VmRSS");
        sample.privateBytes = kilobyteField(status, "VmData") + kilobyteField(status, "VmStk");
        sample.virtualSize = kilobyteField(status, "VmSize");
        sample.handleCount = countOpenDescriptors();
        const std::string memory = readAll("/proc/meminfo");
        const std::uint64_t total = kilobyteField(memory, "MemTotal");
        const std::uint64_t available = kilobyteField(memory, "MemAvailable");
        if (total > 0 && available <= total) {
            sample.memoryLoadPercent = static_cast<std::uint32_t>((total - available) * 100 / total);
        }
        sample.frequencyPercent = readFrequencyPercent();
        return sample;
    }

  private:
    void sampleCpu(ProcessSample& sample) {
        const CpuTimes machine = readMachineTimes();
        const std::uint64_t processTicks = readProcessTicks();
        const std::uint64_t elapsed = elapsedTicks();
        if (machine.total > m_lastMachine.total && machine.busy >= m_lastMachine.busy) {
            sample.totalCpuPercent = static_cast<std::int64_t>((machine.busy - m_lastMachine.busy) * 100 /
                                                               (machine.total - m_lastMachine.total));
        }
        if (elapsed > m_lastElapsedTicks && processTicks >= m_lastProcessTicks) {
            sample.processCpuPercent = static_cast<std::int64_t>((processTicks - m_lastProcessTicks) * 100 /
                                                                 (elapsed - m_lastElapsedTicks));
        }
        m_lastMachine = machine;
        m_lastProcessTicks = processTicks;
        m_lastElapsedTicks = elapsed;
    }

    unsigned m_processors;
    CpuTimes m_lastMachine;
    std::uint64_t m_lastProcessTicks;
    std::uint64_t m_lastElapsedTicks;
};

}  // namespace

std::unique_ptr<IProcessStats> makeProcessStats() {
    return std::make_unique<ProcStats>();
}

}  // namespace ovtx::system::process_stats::v1
