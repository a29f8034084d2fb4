// A minimal consumer of a run's video channel, built only against the installed library:
//   c++ -std=c++20 consumer.cpp $(pkg-config --cflags --libs sdi_tap_simulcast)
//   ./consumer <video channel name> [open attempts]
// It opens the channel (one attempt every 100 ms, by default for ever), then prints the sequence
// number and start time of 100 records, "idle" for each second without one, and "(lost chunks)"
// where it fell behind. Exit codes: 0 after the 100 records, 1 when the channel changed under the
// reader (a run restarted with other sizes), 2 when the channel never appeared.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "simulcast/capture_records.h"
#include "simulcast/simulcast_reader.h"

int main(int argc, char** argv) {
    using namespace ovtx::simulcast::simulcast_channel::v1;
    using namespace ovtx::simulcast::capture_records::v1;
    if (argc < 2) {
        std::fprintf(stderr, "usage: consumer <channel name> [open attempts]\n");
        return 1;
    }
    const int attempts = argc > 2 ? std::atoi(argv[2]) : 1000000;

    SimulcastReader reader;
    int attempt = 0;
    while (!reader.open(argv[1])) {  // the writer may not be there yet
        if (++attempt >= attempts) {
            std::fprintf(stderr, "no channel %s\n", argv[1]);
            return 2;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    std::vector<std::uint8_t> chunk(static_cast<std::size_t>(reader.maxChunkBytes()));
    for (int records = 0; records < 100;) {
        bool discontinuity = false;
        bool timedOut = false;
        if (reader.read(chunk.data(), static_cast<std::int32_t>(chunk.size()), 1000, discontinuity,
                        timedOut)) {
            VideoRecordHeader header;  // on a video channel
            std::memcpy(&header, chunk.data(), sizeof header);
            std::printf("seq %lld start %lld%s\n", static_cast<long long>(reader.lastSequence()),
                        static_cast<long long>(header.start),
                        discontinuity && records > 0 ? " (lost chunks)" : "");
            ++records;
        } else if (timedOut) {
            std::printf("idle\n");  // the writer is idle or gone: keep waiting, or give up
        } else {
            return 1;
        }
    }
    return 0;
}
