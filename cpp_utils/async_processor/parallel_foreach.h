// A parallel loop over a list, on a pool of worker threads that lives for one call.
//
// `parallelForeach_ext(list, workers, function)` applies `function` to every element of `list`
// on `workers` threads (never more threads than elements) and returns once every call has ended.
// The function takes the element by reference, or the element's index and the element:
//
//   parallelForeach_ext(items, std::thread::hardware_concurrency(), [](Item& item) { item.load(); });
//   parallelForeach_ext(items, 4, [&](std::size_t index, Item& item) { logs[index] = item.load(); });
//
// Failures: every element is processed even if some calls throw. When the loop has finished, the
// first failure (in time) is rethrown to the caller with its own type and text, so a caller sees
// the same exception as from a serial loop. An exception that is not a `std::exception` comes out
// as a `std::runtime_error` with the text "unknown error in parallelForeach_ext".
//
// Calls run concurrently: the function must tolerate that for different elements.
#pragma once

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>
#include <latch>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "cpp_utils/async_processor/working_thread.h"

namespace ovtx::cpp_utils::async_processor::v2 {

namespace detail {

// Keeps the first failure of the loop.
class FirstFailure {
  public:
    void keepCurrent() {
        std::exception_ptr failure;
        try {
            throw;
        } catch (const std::exception&) {
            failure = std::current_exception();
        } catch (...) {
            failure = std::make_exception_ptr(std::runtime_error("unknown error in parallelForeach_ext"));
        }
        std::lock_guard lock(m_mutex);
        if (!m_failure) {
            m_failure = std::move(failure);
        }
    }

    void rethrowIfAny() const {
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
    }

  private:
    std::mutex m_mutex;
    std::exception_ptr m_failure;
};

}  // namespace detail

template <typename List, typename Function>
void parallelForeach_ext(List& list, std::size_t workers, Function&& function) {
    using Element = std::remove_reference_t<decltype(*std::begin(list))>;
    using Job = std::pair<std::size_t, Element*>;

    const auto count = static_cast<std::size_t>(std::distance(std::begin(list), std::end(list)));
    if (count == 0) {
        return;
    }
    detail::FirstFailure failure;
    std::latch done(static_cast<std::ptrdiff_t>(count));
    {
        WorkingThread<Job> pool(
            [&](std::size_t) {
                return [&](Job job) {
                    try {
                        if constexpr (std::is_invocable_v<Function&, std::size_t, Element&>) {
                            function(job.first, *job.second);
                        } else {
                            function(*job.second);
                        }
                    } catch (...) {
                        failure.keepCurrent();
                    }
                    done.count_down();
                };
            },
            std::max<std::size_t>(1, std::min(workers, count)));
        std::size_t index = 0;
        for (auto& element : list) {
            pool.post(Job{index++, &element});
        }
        done.wait();
    }
    failure.rethrowIfAny();
}

}  // namespace ovtx::cpp_utils::async_processor::v2
