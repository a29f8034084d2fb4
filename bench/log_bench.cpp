// Figures for the log front end, beside spdlog's asynchronous logger as the anchor.
//
// 1. Caller-side cost of one call, median and 99th percentile, with one and four calling threads.
//    Calls come in batches that the queue can hold (800 lines per batch), and the next batch starts
//    once the previous one has reached the file: this is the cost a capture thread pays in normal
//    running, not the cost of dropping lines from an overflowed queue.
// 2. The sustained rate that reaches the file: one thread logs as fast as it can for two seconds;
//    the figure is the number of lines in the file divided by the time until the last one was
//    written. Our queue drops lines beyond 1000 (by design), spdlog's blocks the caller instead;
//    both write and flush every line.
//
// Usage: log_bench [seconds of flood, default 2]
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/details/thread_pool.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "log/log_file_sink.h"
#include "log/log_perf.h"

namespace {

using Clock = std::chrono::steady_clock;
using ovtx::log::log_perf::v4::LibLogPerf;
using ovtx::log::log_perf::v4::LogFileSink;
using ovtx::log::log_perf::v4::Timestamp;

constexpr int kLinesPerBatch = 800;
constexpr int kBatches = 100;

// Counts the lines that reached the end of a logger's pipeline.
struct DeliveredCounter : ovtx::log::log_perf::v4::ILogSink {
    void Log(int, const Timestamp*, const char*) override { count.fetch_add(1, std::memory_order_relaxed); }
    std::atomic<std::uint64_t> count{0};
};

struct SpdlogCounter : spdlog::sinks::base_sink<std::mutex> {
    void sink_it_(const spdlog::details::log_msg&) override { count.fetch_add(1, std::memory_order_relaxed); }
    void flush_() override {}
    std::atomic<std::uint64_t> count{0};
};

// One subject under test: how to log a line, and how many lines have been written.
struct Subject {
    std::function<void(int thread, int index)> log;
    std::function<std::uint64_t()> delivered;
};

struct CallCost {
    double medianNs = 0;
    double p99Ns = 0;
};

bool waitForDelivered(const Subject& subject, std::uint64_t expected) {
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    while (subject.delivered() < expected) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

CallCost measureCallCost(const Subject& subject, int threads) {
    std::vector<std::vector<std::int64_t>> samples(threads);
    const int perThread = kLinesPerBatch / threads;
    std::uint64_t expected = subject.delivered();
    for (int batch = 0; batch < kBatches; ++batch) {
        std::vector<std::thread> callers;
        for (int thread = 0; thread < threads; ++thread) {
            callers.emplace_back([&, thread] {
                for (int index = 0; index < perThread; ++index) {
                    const auto start = Clock::now();
                    subject.log(thread, batch * perThread + index);
                    samples[thread].push_back((Clock::now() - start).count());
                }
            });
        }
        for (auto& caller : callers) {
            caller.join();
        }
        expected += static_cast<std::uint64_t>(perThread * threads);
        if (!waitForDelivered(subject, expected)) {
            std::fprintf(stderr, "lines did not reach the file\n");
            break;
        }
    }
    std::vector<std::int64_t> all;
    for (const auto& perCaller : samples) {
        all.insert(all.end(), perCaller.begin(), perCaller.end());
    }
    std::sort(all.begin(), all.end());
    return CallCost{static_cast<double>(all[all.size() / 2]),
                    static_cast<double>(all[all.size() * 99 / 100])};
}

struct Flood {
    std::uint64_t calls = 0;
    double linesPerSecond = 0;
};

// Logs from one thread for `seconds`, then waits for the end of `finish` (drain and close).
Flood flood(const Subject& subject, double seconds, const std::function<std::uint64_t()>& finish) {
    Flood result;
    const auto start = Clock::now();
    const auto end =
        start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    while (Clock::now() < end) {
        for (int index = 0; index < 100; ++index) {
            subject.log(0, static_cast<int>(result.calls++));
        }
    }
    const std::uint64_t lines = finish();
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    result.linesPerSecond = static_cast<double>(lines) / elapsed;
    return result;
}

std::uint64_t countLines(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return static_cast<std::uint64_t>(
        std::count(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>(), '\n'));
}

void printCost(const char* name, int threads, const CallCost& cost) {
    std::printf("%-10s call cost, %d thread%s: median %7.0f ns   p99 %8.0f ns\n", name, threads,
                threads == 1 ? " " : "s", cost.medianNs, cost.p99Ns);
}

void runOurs(const std::filesystem::path& directory, double seconds) {
    for (int threads : {1, 4}) {
        LogFileSink file(50000);
        file.SetFile((directory / ("ours_" + std::to_string(threads) + ".log")).string());
        DeliveredCounter counter;
        LibLogPerf logger;
        logger.AddSink(&file);
        logger.AddSink(&counter);
        Subject subject{[&](int thread, int index) {
                            logger.Log(2, "Frame %d on thread %d: audio pair %d late by %d us", index, thread,
                                       index % 8, index % 977);
                        },
                        [&] { return counter.count.load(); }};
        printCost("sdi_tap", threads, measureCallCost(subject, threads));
    }
    const auto path = directory / "ours_flood.log";
    auto file = std::make_unique<LogFileSink>(50000);
    file->SetFile(path.string());
    auto logger = std::make_unique<LibLogPerf>();
    logger->AddSink(file.get());
    Subject subject{[&](int thread, int index) {
                        logger->Log(2, "Frame %d on thread %d: audio pair %d late by %d us", index, thread,
                                    index % 8, index % 977);
                    },
                    {}};
    const Flood result = flood(subject, seconds, [&] {
        logger.reset();
        file.reset();
        return countLines(path) - 1;  // less the header
    });
    std::printf(
        "sdi_tap    flood: %llu calls, %.0f lines/s reached the file (%.1f %% of the calls; the rest "
        "overflowed)\n",
        static_cast<unsigned long long>(result.calls), result.linesPerSecond,
        100.0 * static_cast<double>(countLines(path) - 1) / static_cast<double>(result.calls));
}

std::shared_ptr<spdlog::async_logger> makeSpdlog(const std::filesystem::path& path,
                                                 std::shared_ptr<spdlog::details::thread_pool> pool,
                                                 std::shared_ptr<SpdlogCounter> counter) {
    std::vector<spdlog::sink_ptr> sinks{
        std::make_shared<spdlog::sinks::basic_file_sink_mt>(path.string(), true)};
    if (counter) {
        sinks.push_back(counter);
    }
    auto logger = std::make_shared<spdlog::async_logger>("bench", sinks.begin(), sinks.end(), std::move(pool),
                                                         spdlog::async_overflow_policy::block);
    logger->set_pattern("%E%e;%a %b %d %H:%M:%S.%e;%l;%v");
    logger->flush_on(spdlog::level::trace);  // every line flushed, as the log file does
    return logger;
}

void runSpdlog(const std::filesystem::path& directory, double seconds) {
    for (int threads : {1, 4}) {
        auto pool = std::make_shared<spdlog::details::thread_pool>(8192, 1);
        auto counter = std::make_shared<SpdlogCounter>();
        auto logger = makeSpdlog(directory / ("spdlog_" + std::to_string(threads) + ".log"), pool, counter);
        Subject subject{[&](int thread, int index) {
                            logger->info("Frame {} on thread {}: audio pair {} late by {} us", index, thread,
                                         index % 8, index % 977);
                        },
                        [&] { return counter->count.load(); }};
        printCost("spdlog", threads, measureCallCost(subject, threads));
    }
    const auto path = directory / "spdlog_flood.log";
    auto pool = std::make_shared<spdlog::details::thread_pool>(8192, 1);
    auto logger = makeSpdlog(path, pool, nullptr);
    Subject subject{[&](int thread, int index) {
                        logger->info("Frame {} on thread {}: audio pair {} late by {} us", index, thread,
                                     index % 8, index % 977);
                    },
                    {}};
    const Flood result = flood(subject, seconds, [&] {
        logger.reset();
        pool.reset();  // joins the worker after it has written everything queued
        return countLines(path);
    });
    std::printf(
        "spdlog     flood: %llu calls, %.0f lines/s reached the file (the caller blocks when the queue of "
        "8192 is full)\n",
        static_cast<unsigned long long>(result.calls), result.linesPerSecond);
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 2.0;
    const auto directory =
        std::filesystem::temp_directory_path() / ("log_bench_" + std::to_string(std::random_device{}()));
    std::filesystem::create_directories(directory);
    std::printf("%d batches of %d lines; lines like \"Frame 123 on thread 0: audio pair 3 late by 123 us\"\n",
                kBatches, kLinesPerBatch);
    runOurs(directory, seconds);
    runSpdlog(directory, seconds);
    std::filesystem::remove_all(directory);
    return 0;
}
