// How long the daemon's log file takes to open at start-up, the rebuild of the remembered lines
// included: a file filled to the daemon's bound, a large file written without a bound opened as it
// is (what every start cost before the bound), and the same file opened under the bound (moved
// aside, its newest lines kept). Median of five opens each, on files in the temporary directory.
//
//   build/bin/log_open_bench [megabytes of the large file, default 171]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "log/log_file_sink.h"

namespace {

namespace fs = std::filesystem;
using ovtx::log::log_perf::v4::kDaemonLogFileSizeLimit;
using ovtx::log::log_perf::v4::LogFileSink;

constexpr int kRuns = 5;

// A file that never wrapped, of about `bytes` bytes of records of the daemon's usual length.
void writeLog(const fs::path& path, std::uint64_t bytes) {
    std::string records;
    for (std::uint64_t index = 0; records.size() < bytes; ++index) {
        records += std::to_string(index) + ";Mon Nov 23 10:00:00.000;1795428000000;2;Video frame " +
                   std::to_string(index) + " late by 3 ms on port 0\r\n";
    }
    char header[16];
    std::snprintf(header, sizeof header, "0x%.8X\r\n", static_cast<unsigned>(12 + records.size()));
    std::ofstream(path, std::ios::binary) << header << records;
}

// Opens `path` in a new sink with `limit`; `prepare` runs untimed before each open.
template <typename Prepare>
double medianOpenMs(const fs::path& path, std::uint32_t limit, Prepare&& prepare) {
    std::vector<double> times;
    for (int run = 0; run < kRuns; ++run) {
        prepare();
        const auto start = std::chrono::steady_clock::now();
        LogFileSink sink(50000);
        sink.SetFileSizeLimit(limit);
        sink.SetNoticeHandler([](const std::string&) {});
        sink.SetFile(path.string());
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[kRuns / 2];
}

}  // namespace

int main(int argc, char** argv) {
    const std::uint64_t largeBytes = (argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 171) << 20;
    const fs::path dir =
        fs::temp_directory_path() / ("log_open_bench_" + std::to_string(std::random_device{}()));
    fs::create_directories(dir);
    const fs::path bounded = dir / "bounded.log";
    const fs::path large = dir / "large.log";
    const fs::path largeCopy = dir / "large.copy";
    writeLog(bounded, kDaemonLogFileSizeLimit);
    writeLog(large, largeBytes);
    fs::copy_file(large, largeCopy);

    const double boundedMs = medianOpenMs(bounded, kDaemonLogFileSizeLimit, [] {});
    const double unboundedMs = medianOpenMs(large, 0, [] {});
    const double movedMs = medianOpenMs(large, kDaemonLogFileSizeLimit, [&] {
        for (const auto& entry : fs::directory_iterator(dir)) {
            if (entry.path().filename().string().starts_with("large.log")) {
                fs::remove(entry.path());
            }
        }
        fs::copy_file(largeCopy, large);
    });
    std::printf("open, file at the bound (%u bytes):              %8.1f ms\n", kDaemonLogFileSizeLimit,
                boundedMs);
    std::printf("open, %llu MB file without a bound:                %8.1f ms\n",
                static_cast<unsigned long long>(largeBytes >> 20), unboundedMs);
    std::printf("open, same file under the bound (moved aside):    %8.1f ms, new file %llu bytes\n", movedMs,
                static_cast<unsigned long long>(fs::file_size(large)));
    fs::remove_all(dir);
    return 0;
}
