// Simulcast transport figures across two processes: this program writes, a copy of itself started
// as a child reads.
//
//   simulcast_bench            throughput for 1080p and 4K 10-bit video chunks, in GB/s and as a
//                              ratio to a plain memcpy of the same size; wake-up latency from
//                              commitChunk to the return of read in the other process
//
// Throughput: the writer fills each chunk with a memcpy from a source picture and commits; the
// reader copies every chunk out to its own buffer and acknowledges it through an event, and the
// writer waits for that before its next chunk. In the daemon the frame rate paces the writer; an
// unpaced writer would take the data mutex again at once and starve the reader, which measures the
// scheduler rather than the transport. Both ends hold the data mutex while they copy, so the two
// copies of a chunk are serialised: a ratio near 0.5 is the ceiling.
// Latency: the writer stamps the monotonic clock into a 64-byte chunk just before commitChunk,
// once a millisecond; the reader takes the difference when read returns.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "simulcast/capture_records.h"
#include "simulcast/simulcast_reader.h"
#include "simulcast/simulcast_writer.h"
#include "system/ipc/named_objects.h"
#include "system/process/piped_child.h"

namespace {

using namespace ovtx::simulcast::simulcast_channel::v1;
using namespace ovtx::simulcast::capture_records::v1;
using ovtx::system::ipc::v2::NamedEvent;
using ovtx::system::process::v1::PipedChild;
using Clock = std::chrono::steady_clock;

constexpr std::int32_t kThroughputChunks = 8;
constexpr std::int32_t kLatencyChunks = 32;
constexpr std::int32_t kLatencyChunkBytes = 64;
constexpr int kLatencySamples = 3000;
constexpr auto kThroughputDuration = std::chrono::seconds(3);
constexpr auto kAnswerTimeout = std::chrono::seconds(60);

double seconds(Clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

std::int64_t nowNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

// The reader's acknowledgement of each chunk, for the throughput run.
NamedEvent acknowledgement(const std::string& channelName) {
    return NamedEvent::createOrJoin(channelName + "_BENCH_ACK", NamedEvent::Reset::Auto, false);
}

bool openWithRetries(SimulcastReader& reader, const std::string& name) {
    const auto deadline = Clock::now() + kAnswerTimeout;
    while (!reader.open(name.c_str())) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// ---- Child: the reading process --------------------------------------------------------------

int readThroughput(const std::string& name) {
    SimulcastReader reader;
    if (!openWithRetries(reader, name)) {
        std::printf("fail\n");
        return 1;
    }
    NamedEvent ack = acknowledgement(name);
    std::vector<std::uint8_t> buffer(static_cast<std::size_t>(reader.maxChunkBytes()));
    const auto size = static_cast<std::int32_t>(buffer.size());
    bool discontinuity = false;
    bool timedOut = false;
    reader.read(buffer.data(), size, 0, discontinuity, timedOut);  // fixes the start
    std::printf("ready\n");
    std::fflush(stdout);
    std::int64_t delivered = 0;
    std::int64_t lost = 0;
    Clock::time_point first{};
    Clock::time_point last{};
    while (reader.read(buffer.data(), size, 1000, discontinuity, timedOut)) {
        last = Clock::now();
        if (delivered == 0) {
            first = last;
        } else if (discontinuity) {
            ++lost;
        }
        ++delivered;
        ack.set();
    }
    // The first chunk only starts the clock.
    const double bytes = static_cast<double>(delivered - 1) * static_cast<double>(size);
    std::printf("%lld %lld %.9f %.0f\n", static_cast<long long>(delivered), static_cast<long long>(lost),
                seconds(last - first), bytes);
    return 0;
}

int readLatency(const std::string& name) {
    SimulcastReader reader;
    if (!openWithRetries(reader, name)) {
        std::printf("fail\n");
        return 1;
    }
    std::int64_t stamp = 0;
    bool discontinuity = false;
    bool timedOut = false;
    reader.read(&stamp, sizeof stamp, 0, discontinuity, timedOut);
    std::printf("ready\n");
    std::fflush(stdout);
    std::vector<double> latencies;
    while (static_cast<int>(latencies.size()) < kLatencySamples &&
           reader.read(&stamp, sizeof stamp, 5000, discontinuity, timedOut)) {
        latencies.push_back(static_cast<double>(nowNanoseconds() - stamp) / 1000.0);
    }
    std::sort(latencies.begin(), latencies.end());
    if (latencies.empty()) {
        std::printf("fail\n");
        return 1;
    }
    const auto percentile = [&](double p) {
        return latencies[static_cast<std::size_t>(p * (latencies.size() - 1))];
    };
    std::printf("%zu %.1f %.1f %.1f\n", latencies.size(), percentile(0.5), percentile(0.99),
                latencies.back());
    return 0;
}

// ---- Parent: the writing process -------------------------------------------------------------

double memcpyGigabytesPerSecond(std::size_t bytes) {
    std::vector<std::uint8_t> source(bytes, 1);
    std::vector<std::uint8_t> target(bytes, 2);
    int rounds = 0;
    const auto start = Clock::now();
    while (Clock::now() - start < std::chrono::seconds(1)) {
        source[static_cast<std::size_t>(rounds) % bytes] = static_cast<std::uint8_t>(rounds);
        std::memcpy(target.data(), source.data(), bytes);
        ++rounds;
    }
    const double elapsed = seconds(Clock::now() - start);
    volatile std::uint8_t sink = target[bytes / 2];
    (void)sink;
    return static_cast<double>(bytes) * rounds / elapsed / 1e9;
}

PipedChild startReader(const char* self, const std::string& role, const std::string& name) {
    PipedChild reader = PipedChild::spawn(self, {role, name});
    if (reader.readLine(kAnswerTimeout) != std::optional<std::string>("ready")) {
        std::fprintf(stderr, "simulcast_bench: the reader did not start\n");
        std::exit(1);
    }
    return reader;
}

void benchThroughput(const char* self, const char* label, int width, int height) {
    const std::int32_t chunkBytes = captureVideoChunkBytes(width, height, true);
    const std::string name =
        "sdi_tap_bench_throughput_" + std::to_string(ovtx::system::process::v1::currentProcessId());
    SimulcastWriter writer;
    if (!writer.open(kThroughputChunks, chunkBytes, name.c_str())) {
        std::fprintf(stderr, "simulcast_bench: cannot open %s\n", name.c_str());
        std::exit(1);
    }
    NamedEvent ack = acknowledgement(name);
    PipedChild reader = startReader(self, "--read-throughput", name);
    std::vector<std::uint8_t> picture(static_cast<std::size_t>(chunkBytes), 0x40);
    std::int64_t written = 0;
    const auto start = Clock::now();
    while (Clock::now() - start < kThroughputDuration) {
        auto* chunk = writer.beginChunk();
        std::memcpy(chunk, picture.data(), picture.size());
        writer.commitChunk();
        ++written;
        // A pulse finds no reader that is between two waits; the next commit's pulse wakes it.
        ack.wait(std::chrono::milliseconds(5));
    }
    const double writeSeconds = seconds(Clock::now() - start);
    const std::string result = reader.readLine(kAnswerTimeout).value_or("");
    reader.wait(kAnswerTimeout);
    writer.close();
    long long delivered = 0;
    long long lost = 0;
    double readSeconds = 0;
    double bytes = 0;
    if (std::sscanf(result.c_str(), "%lld %lld %lf %lf", &delivered, &lost, &readSeconds, &bytes) != 4 ||
        readSeconds <= 0) {
        std::fprintf(stderr, "simulcast_bench: no figures from the reader (%s)\n", result.c_str());
        std::exit(1);
    }
    const double gbps = bytes / readSeconds / 1e9;
    const double copy = memcpyGigabytesPerSecond(static_cast<std::size_t>(chunkBytes));
    std::printf(
        "throughput %-13s chunk %9d B  written %6lld (%.0f/s)  delivered %6lld (%.0f/s, %lld after a gap)\n",
        label, chunkBytes, static_cast<long long>(written), written / writeSeconds, delivered,
        (delivered - 1) / readSeconds, lost);
    std::printf("           %-13s reader %.2f GB/s  memcpy %.2f GB/s  ratio %.2f\n", label, gbps, copy,
                gbps / copy);
}

void benchLatency(const char* self) {
    const std::string name =
        "sdi_tap_bench_latency_" + std::to_string(ovtx::system::process::v1::currentProcessId());
    SimulcastWriter writer;
    if (!writer.open(kLatencyChunks, kLatencyChunkBytes, name.c_str())) {
        std::fprintf(stderr, "simulcast_bench: cannot open %s\n", name.c_str());
        std::exit(1);
    }
    PipedChild reader = startReader(self, "--read-latency", name);
    for (int i = 0; i < kLatencySamples + 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));  // the reader is waiting by then
        auto* chunk = writer.beginChunk();
        const std::int64_t stamp = nowNanoseconds();
        std::memcpy(chunk, &stamp, sizeof stamp);
        writer.commitChunk();
    }
    const std::string result = reader.readLine(kAnswerTimeout).value_or("");
    reader.wait(kAnswerTimeout);
    std::size_t samples = 0;
    double median = 0;
    double p99 = 0;
    double worst = 0;
    if (std::sscanf(result.c_str(), "%zu %lf %lf %lf", &samples, &median, &p99, &worst) != 4) {
        std::fprintf(stderr, "simulcast_bench: no figures from the reader (%s)\n", result.c_str());
        std::exit(1);
    }
    std::printf(
        "wake-up latency commitChunk -> read returns (%zu samples, 1 ms apart): median %.1f us  p99 %.1f us"
        "  max %.1f us\n",
        samples, median, p99, worst);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "--read-throughput") {
        return readThroughput(argv[2]);
    }
    if (argc == 3 && std::string(argv[1]) == "--read-latency") {
        return readLatency(argv[2]);
    }
    benchThroughput(argv[0], "1080p 10-bit", 1920, 1080);
    benchThroughput(argv[0], "2160p 10-bit", 3840, 2160);
    benchLatency(argv[0]);
    return 0;
}
