#include "system/sync_ptr/sync_ptr.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <string>
#include <thread>

#include "system/sync_ptr/shared_sync_ptr.h"

namespace {

using namespace ovtx::system::sync_ptr::v1;
using namespace ovtx::system::shared_sync_ptr::v0;
using namespace std::chrono_literals;

struct Engine {
    int format = 3;
    int read(CriticalSection& section) const {
        // Taken from another thread, the section must be busy while an access holds it.
        return std::async(std::launch::async,
                          [&section] {
                              const bool entered = section.tryEnter();
                              if (entered) {
                                  section.leave();
                              }
                              return entered ? 1 : 0;
                          })
            .get();
    }
};

TEST(SyncPtrTest, ArrowAccess_HoldsSectionForTheExpression) {
    CriticalSection section;
    Engine engine;
    auto guarded = make_sync_ptr(&engine, section);
    EXPECT_EQ(guarded->read(section), 0);
    EXPECT_EQ(engine.read(section), 1);  // free again after the expression
    EXPECT_EQ(guarded->format, 3);
}

TEST(SyncPtrTest, CreateLock_HoldsSectionUntilDropped_AndOwnerMayReenter) {
    CriticalSection section;
    Engine engine;
    auto guarded = make_sync_ptr(&engine, section);
    {
        std::unique_ptr<ILock> lock = CreateLock(guarded);
        EXPECT_EQ(engine.read(section), 0);
        EXPECT_EQ(guarded->format, 3);  // the holder's own thread enters again
    }
    EXPECT_EQ(engine.read(section), 1);
}

TEST(SyncPtrTest, ValueHandle_IsReachedThroughAccess) {
    CriticalSection section;
    auto guarded = make_sync_ptr(std::string("abc"), section);
    EXPECT_EQ(guarded->size(), 3u);
    EXPECT_EQ(*guarded.access(), "abc");
}

struct Tracked {
    explicit Tracked(std::atomic<int>& destroyed) : destroyed(destroyed) {}
    ~Tracked() { ++destroyed; }
    std::atomic<int>& destroyed;
    int value = 0;
};

TEST(SharedSyncPtrTest, Pointers_KeepObjectAliveAfterAccessorIsGone) {
    std::atomic<int> destroyed = 0;
    std::optional<SharedSyncAccessor<Tracked>> accessor(std::in_place, std::make_unique<Tracked>(destroyed));
    {
        ExclusiveSyncPtr<Tracked> writing = accessor->exclusive();
        accessor.reset();
        writing->value = 5;
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(SharedSyncPtrTest, SharedHolders_RunTogether) {
    SharedSyncAccessor<int> accessor(std::make_unique<int>(7));
    SharedSyncPtr<int> first = accessor.shared();
    const int seenByOther = std::async(std::launch::async, [&accessor] { return *accessor.shared(); }).get();
    EXPECT_EQ(seenByOther, 7);
    EXPECT_EQ(*first, 7);
}

TEST(SharedSyncPtrTest, ExclusiveHolder_WaitsForSharedHoldersAndSeesTheirEnd) {
    SharedSyncAccessor<int, std::shared_ptr<int>> accessor(std::make_shared<int>(1));
    std::atomic<bool> written = false;
    std::optional<SharedSyncPtr<int>> reading(accessor.shared());
    std::thread writer([&] {
        ExclusiveSyncPtr<int> writing = accessor.exclusive();
        *writing = 2;
        written = true;
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(written);  // still held back by the reader
    EXPECT_EQ(**reading, 1);
    reading.reset();
    writer.join();
    EXPECT_TRUE(written);
    EXPECT_EQ(*accessor.shared(), 2);
}

TEST(SharedSyncPtrTest, Interfaces_GiveTheSameObject) {
    SharedSyncAccessor<std::string, std::string> accessor(std::string("x"));
    const ISharedSyncAccessor<std::string>& generic = accessor;
    {
        ExclusiveSyncPtr<std::string> writing = generic.exclusive();
        const IExclusiveSyncPtr<std::string>& pointer = writing;
        pointer->append("y");
    }
    SharedSyncPtr<std::string> reading = generic.shared();
    const ISharedSyncPtr<std::string>& pointer = reading;
    EXPECT_EQ(*pointer, "xy");
}

}  // namespace
