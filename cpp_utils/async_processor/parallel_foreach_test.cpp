#include "cpp_utils/async_processor/parallel_foreach.h"

#include <gtest/gtest.h>

#include <atomic>
#include <list>
#include <numeric>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using ovtx::cpp_utils::async_processor::v2::parallelForeach_ext;

TEST(ParallelForeachTest, EveryElement_IsProcessedOnce) {
    std::vector<int> values(1000);
    std::iota(values.begin(), values.end(), 0);
    parallelForeach_ext(values, 4, [](int& value) { value *= 2; });
    for (int index = 0; index < 1000; ++index) {
        ASSERT_EQ(values[index], 2 * index);
    }
}

TEST(ParallelForeachTest, IndexForm_GivesEachElementItsPosition) {
    std::list<std::size_t> positions(100, 0);
    parallelForeach_ext(positions, 3, [](std::size_t index, std::size_t& slot) { slot = index; });
    std::size_t expected = 0;
    for (std::size_t slot : positions) {
        EXPECT_EQ(slot, expected++);
    }
}

TEST(ParallelForeachTest, SeveralWorkers_RunConcurrently) {
    std::vector<int> values(2);
    std::atomic<int> arrived{0};
    // Each call waits for the other one: this ends only if both run at the same time.
    parallelForeach_ext(values, 2, [&](int&) {
        ++arrived;
        while (arrived < 2) {
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(arrived, 2);
}

TEST(ParallelForeachTest, Failure_IsRethrownWithItsTypeAfterAllElementsRan) {
    std::vector<int> values(50, 0);
    std::atomic<int> processed{0};
    try {
        parallelForeach_ext(values, 4, [&](std::size_t index, int&) {
            ++processed;
            if (index == 7) {
                throw std::invalid_argument("cannot parse: x");
            }
        });
        FAIL() << "the failure must reach the caller";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "cannot parse: x");
    }
    EXPECT_EQ(processed, 50);
}

TEST(ParallelForeachTest, NonStandardException_BecomesUnknownError) {
    std::vector<int> values(3, 0);
    try {
        parallelForeach_ext(values, 2, [](int& value) {
            if (value == 0) {
                throw 5;
            }
        });
        FAIL() << "the failure must reach the caller";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "unknown error in parallelForeach_ext");
    }
}

TEST(ParallelForeachTest, EmptyListOrZeroWorkers_StillCompletes) {
    std::vector<int> empty;
    parallelForeach_ext(empty, 4, [](int&) { FAIL(); });
    std::set<int> one{1};
    int seen = 0;
    parallelForeach_ext(one, 0, [&](const int& value) { seen = value; });
    EXPECT_EQ(seen, 1);
}

}  // namespace
