#include "cpp_utils/async_processor/working_thread.h"

#include "log/testing/capturing_logger.h"

#include <gtest/gtest.h>

#include <barrier>
#include <cstdarg>
#include <cstdio>
#include <latch>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using ovtx::log::log_perf::v4::testing::CapturingLogger;

using ovtx::cpp_utils::async_processor::v2::WorkingThread;

TEST(WorkingThreadTest, EveryPostedJob_RunsOnTheWorkerOfItsFunction) {
    constexpr int kJobs = 500;
    std::latch done(kJobs);
    std::mutex mutex;
    std::vector<int> perWorker(3, 0);
    int sum = 0;
    WorkingThread<int> pool(
        [&](std::size_t worker) {
            return [&, worker](int job) {
                {
                    std::lock_guard lock(mutex);
                    ++perWorker.at(worker);
                    sum += job;
                }
                done.count_down();
            };
        },
        3);
    for (int job = 1; job <= kJobs; ++job) {
        pool.post(job);
    }
    done.wait();
    EXPECT_EQ(sum, kJobs * (kJobs + 1) / 2);
    EXPECT_EQ(perWorker[0] + perWorker[1] + perWorker[2], kJobs);
}

TEST(WorkingThreadTest, ThrowingJob_IsLoggedAndTheWorkerGoesOn) {
    CapturingLogger logger;
    std::latch done(1);
    WorkingThread<int> pool(
        [&](std::size_t) {
            return [&](int job) {
                if (job == 0) {
                    throw std::runtime_error("request failed");
                }
                if (job == 1) {
                    throw 42;
                }
                done.count_down();
            };
        },
        1, &logger);
    pool.post(0);
    pool.post(1);
    pool.post(2);
    done.wait();
    EXPECT_EQ(logger.lines(), (std::vector<std::string>{"1 Worker 0: job failed: request failed",
                                                        "1 Worker 0: job failed: unknown exception"}));
}

// Records, when a worker thread ends, which worker it was.
std::mutex exitMutex;
std::vector<std::size_t> exitOrder;
struct ExitRecorder {
    std::size_t worker = 0;
    ~ExitRecorder() {
        std::lock_guard lock(exitMutex);
        exitOrder.push_back(worker);
    }
};
thread_local ExitRecorder exitRecorder;

TEST(WorkingThreadTest, Destructor_StopsWorkersInIndexOrder) {
    constexpr std::size_t kWorkers = 4;
    exitOrder.clear();
    std::barrier allBusy(kWorkers + 1);
    {
        WorkingThread<int> pool(
            [&](std::size_t worker) {
                return [&, worker](int) {
                    exitRecorder.worker = worker;
                    // Holding every worker here gives each of them exactly one job.
                    allBusy.arrive_and_wait();
                };
            },
            kWorkers);
        for (std::size_t job = 0; job < kWorkers; ++job) {
            pool.post(0);
        }
        allBusy.arrive_and_wait();
    }
    EXPECT_EQ(exitOrder, (std::vector<std::size_t>{0, 1, 2, 3}));
}

}  // namespace
