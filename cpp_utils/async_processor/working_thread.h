// A pool of worker threads that take jobs from one unbounded queue.
//
// Each worker gets its own job function, made from its index when the pool is built, so a worker
// can keep per-thread state in the closure. `post` never blocks and never refuses a job: the queue
// has no limit. A job that throws does not end its worker: the failure is logged (level 1) when a
// logger was given, and the worker takes the next job.
//
//   WorkingThread<Request*> pool(
//       [&](std::size_t worker) { return [&, worker](Request* request) { handle(worker, request); }; },
//       32, &logger);
//   pool.post(request);
//
// The destructor stops the workers one after the other in index order: it tells a worker to stop
// and waits for it before it turns to the next. A worker that has been told to stop takes no
// further job, so jobs still queued when the last worker stops are dropped unrun.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "log/i_logger.h"
#include "system/thread/thread.h"

namespace ovtx::cpp_utils::async_processor::v2 {

template <typename T>
class WorkingThread {
  public:
    using JobFunction = std::function<void(T)>;
    using JobFunctionFactory = std::function<JobFunction(std::size_t workerIndex)>;

    // Builds `workers` workers in index order and starts each one. `logger` may be null.
    WorkingThread(const JobFunctionFactory& makeJobFunction, std::size_t workers,
                  log::i_logger::v0::ILogger* logger = nullptr)
        : m_logger(logger) {
        m_workers.reserve(workers);
        for (std::size_t index = 0; index < workers; ++index) {
            auto worker = std::make_unique<Worker>();
            worker->job = makeJobFunction(index);
            Worker& self = *worker;
            worker->thread = std::make_unique<system::thread::v1::Thread>(
                "sdi_worker_" + std::to_string(index), [this, &self, index] { run(self, index); });
            m_workers.push_back(std::move(worker));
        }
    }

    WorkingThread(const WorkingThread&) = delete;
    WorkingThread& operator=(const WorkingThread&) = delete;

    ~WorkingThread() {
        for (auto& worker : m_workers) {
            {
                std::lock_guard lock(m_mutex);
                worker->stop = true;
            }
            m_wake.notify_all();
            worker->thread.reset();
        }
    }

    // Queues a job and wakes one worker for it.
    void post(T job) {
        {
            std::lock_guard lock(m_mutex);
            m_queue.push_back(std::move(job));
            ++m_available;
        }
        m_wake.notify_one();
    }

    std::size_t workerCount() const { return m_workers.size(); }

  private:
    struct Worker {
        JobFunction job;
        bool stop = false;  // guarded by m_mutex
        std::unique_ptr<system::thread::v1::Thread> thread;
    };

    void run(Worker& worker, std::size_t index) {
        while (true) {
            std::optional<T> job;
            {
                std::unique_lock lock(m_mutex);
                m_wake.wait(lock, [&] { return worker.stop || m_available > 0; });
                if (worker.stop) {
                    return;
                }
                --m_available;
                job.emplace(std::move(m_queue.front()));
                m_queue.pop_front();
            }
            runJob(worker, index, std::move(*job));
        }
    }

    void runJob(Worker& worker, std::size_t index, T job) {
        try {
            worker.job(std::move(job));
        } catch (const std::exception& e) {
            report(index, e.what());
        } catch (...) {
            report(index, "unknown exception");
        }
    }

    void report(std::size_t index, const char* what) {
        if (m_logger != nullptr) {
            m_logger->Log(1, "Worker %zu: job failed: %s", index, what);
        }
    }

    log::i_logger::v0::ILogger* m_logger;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<T> m_queue;
    std::size_t m_available = 0;  // one count per post, one taken per job
    std::vector<std::unique_ptr<Worker>> m_workers;
};

}  // namespace ovtx::cpp_utils::async_processor::v2
