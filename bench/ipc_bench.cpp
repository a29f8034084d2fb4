// Costs of the named objects: an uncontended lock and unlock, an uncontended set and poll, and
// the latency from a pulse in this process to the return of a wait in another one (the
// ipc_test_helper beside this program).
//
//   build/bin/ipc_bench [samples]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "system/ipc/named_objects.h"
#include "system/ipc/testing/ipc_helper.h"

namespace {

using namespace ovtx::system::ipc::v2;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

template <typename Body>
double nanosecondsPerCall(int count, Body&& body) {
    const auto start = Clock::now();
    for (int i = 0; i < count; ++i) {
        body();
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / count;
}

std::int64_t nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

// Each sample waits until the other process sleeps in its wait, stamps the time and pulses; the
// other process stores how long after the stamp its wait returned.
void measurePulseLatency(const std::string& base, int samples) {
    NamedMapping mapping = NamedMapping::createOrJoin(base + "_MAP", 3 * sizeof(std::int64_t));
    MappedView view = MappedView::map(mapping, mapping.size(), MappedView::Access::ReadWrite);
    NamedEvent event = NamedEvent::createOrJoin(base + "_EVENT", NamedEvent::Reset::Auto, false);
    if (!view.valid() || !event.valid()) {
        std::printf("pulse -> wake: cannot open the objects\n");
        return;
    }
    auto* words = static_cast<std::atomic<std::int64_t>*>(view.data());
    testing::PipedChild waiter = testing::startIpcHelper({"pulse-waiter", base});
    const auto waiterSleeps = [&] {
        const auto deadline = Clock::now() + 5s;
        while (!testing::sleepsOnSharedFutex(waiter.pid())) {
            if (Clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(1ms);
        }
        return true;
    };

    std::vector<double> latenciesUs;
    int missed = 0;
    for (int i = 0; i < samples; ++i) {
        words[1].store(-1);
        if (!waiterSleeps()) {
            std::printf("pulse -> wake: the waiter never slept\n");
            break;
        }
        words[0].store(nowNs());
        event.pulse();
        const auto deadline = Clock::now() + 200ms;
        while (words[1].load() < 0 && Clock::now() < deadline) {
            std::this_thread::yield();
        }
        const std::int64_t latency = words[1].load();
        if (latency < 0) {
            ++missed;
        } else {
            latenciesUs.push_back(static_cast<double>(latency) / 1000.0);
        }
    }
    words[2].store(1);
    waiter.wait();
    if (latenciesUs.empty()) {
        return;
    }
    std::sort(latenciesUs.begin(), latenciesUs.end());
    const auto at = [&](double q) {
        return latenciesUs[static_cast<std::size_t>(q * (latenciesUs.size() - 1))];
    };
    std::printf(
        "pulse -> wake in another process: median %.1f us, p99 %.1f us, max %.1f us (%zu samples, %d "
        "missed)\n",
        at(0.5), at(0.99), latenciesUs.back(), latenciesUs.size(), missed);
}

}  // namespace

int main(int argc, char** argv) {
    const int samples = argc > 1 ? std::atoi(argv[1]) : 1000;
    const std::string base = "ipc_bench_" + std::to_string(std::random_device{}());

    NamedMutex mutex = NamedMutex::createOrJoin(base + "_MUTEX");
    const double lockNs = nanosecondsPerCall(1000000, [&] {
        mutex.lock();
        mutex.unlock();
    });
    std::printf("uncontended lock + unlock: %.1f ns\n", lockNs);

    NamedEvent event = NamedEvent::createOrJoin(base + "_SELF", NamedEvent::Reset::Auto, false);
    const double eventNs = nanosecondsPerCall(1000000, [&] {
        event.set();
        event.wait(0ms);
    });
    std::printf("uncontended set + wait(0) of an auto-reset event: %.1f ns\n", eventNs);

    measurePulseLatency(base, samples);
    return 0;
}
