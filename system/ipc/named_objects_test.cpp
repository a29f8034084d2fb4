#include "system/ipc/named_objects.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "system/ipc/object_access.h"
#include "system/ipc/testing/ipc_helper.h"
#include "testing/shm.h"

namespace {

using namespace ovtx::system::ipc::v2;
using namespace ovtx::system::ipc::v2::testing;
using namespace ovtx::test_support::v1;
using ovtx::system::process::v1::ExitStatus;
using namespace std::chrono_literals;

using NamedObjectsTest = ShmTest;

std::uint32_t& wordAt(const MappedView& view, std::size_t offset) {
    return *reinterpret_cast<std::uint32_t*>(static_cast<char*>(view.data()) + offset);
}

// A helper that holds the mutex `mutexName` locked.
std::unique_ptr<PipedChild> startLockedHolder(const std::string& mutexName) {
    auto holder = std::make_unique<PipedChild>(startIpcHelper());
    EXPECT_EQ(holder->ask("mutex " + mutexName), "ok");
    EXPECT_EQ(holder->ask("lock"), "ok");
    return holder;
}

// ---- mappings ---------------------------------------------------------------------------------

TEST_F(NamedObjectsTest, TwoProcesses_SeeEachOthersStoresAndTheFirstSize) {
    PipedChild other = startIpcHelper();
    ASSERT_EQ(other.ask("mapping " + name("MAP") + " 8192"), "ok 8192");
    ASSERT_EQ(other.ask("write 100 4242"), "ok");

    NamedMapping mapping = NamedMapping::createOrJoin(name("MAP"), 4096);
    ASSERT_TRUE(mapping.valid()) << std::strerror(mapping.error());
    EXPECT_EQ(mapping.size(), 8192u);
    MappedView view = MappedView::map(mapping, 8192, MappedView::Access::ReadWrite);
    ASSERT_TRUE(view.valid());
    EXPECT_EQ(wordAt(view, 100), 4242u);

    wordAt(view, 8000) = 77;
    EXPECT_EQ(other.ask("read 8000"), "value 77");
}

TEST_F(NamedObjectsTest, FirstOpener_CreatesZeroFilledAtTheAskedSize) {
    NamedMapping mapping = NamedMapping::createOrJoin(name("MAP"), 10000);
    ASSERT_TRUE(mapping.valid());
    EXPECT_EQ(mapping.size(), 12288u) << "rounded up to whole pages";
    MappedView view = MappedView::map(mapping, 10000, MappedView::Access::ReadOnly, true);
    ASSERT_TRUE(view.valid());
    const auto* bytes = static_cast<const unsigned char*>(view.data());
    EXPECT_EQ(std::count(bytes, bytes + 10000, 0), 10000);
}

TEST_F(NamedObjectsTest, MapBeyondTheObjectsSize_Fails) {
    NamedMapping first = NamedMapping::createOrJoin(name("MAP"), 4096);
    NamedMapping second = NamedMapping::createOrJoin(name("MAP"), 65536);
    ASSERT_TRUE(second.valid());
    EXPECT_EQ(second.size(), 4096u);

    MappedView view = MappedView::map(second, 65536, MappedView::Access::ReadWrite);
    EXPECT_FALSE(view.valid());
    EXPECT_EQ(view.error(), EINVAL);
    EXPECT_TRUE(MappedView::map(second, 4096, MappedView::Access::ReadWrite).valid());
}

TEST_F(NamedObjectsTest, View_KeepsTheObjectAfterItsMappingIsClosed) {
    MappedView view;
    {
        NamedMapping mapping = NamedMapping::createOrJoin(name("MAP"), 4096);
        view = MappedView::map(mapping, 4096, MappedView::Access::ReadWrite);
        ASSERT_TRUE(view.valid());
        wordAt(view, 0) = 9;
    }
    ASSERT_TRUE(shmEntryExists(name("MAP")));
    PipedChild other = startIpcHelper();
    EXPECT_EQ(other.ask("mapping " + name("MAP") + " 4096"), "ok 4096");
    EXPECT_EQ(other.ask("read 0"), "value 9");
    EXPECT_EQ(other.ask("close"), "ok");

    EXPECT_TRUE(view.unmap());
    EXPECT_FALSE(shmEntryExists(name("MAP")));
}

TEST_F(NamedObjectsTest, LastClose_RemovesTheObjectAndItsContent) {
    PipedChild other = startIpcHelper();
    ASSERT_EQ(other.ask("mapping " + name("MAP") + " 4096"), "ok 4096");
    ASSERT_EQ(other.ask("write 0 5"), "ok");
    {
        NamedMapping mapping = NamedMapping::createOrJoin(name("MAP"), 4096);
        ASSERT_TRUE(mapping.close());
        EXPECT_TRUE(shmEntryExists(name("MAP"))) << "the helper still holds it";
    }
    ASSERT_EQ(other.ask("close"), "ok");
    EXPECT_FALSE(shmEntryExists(name("MAP")));

    NamedMapping fresh = NamedMapping::createOrJoin(name("MAP"), 4096);
    MappedView view = MappedView::map(fresh, 4096, MappedView::Access::ReadOnly);
    EXPECT_EQ(wordAt(view, 0), 0u);
}

TEST_F(NamedObjectsTest, MappingLargerThanTheFreeMemory_FailsAtOpenAndLeavesNothing) {
    NamedMapping mapping = NamedMapping::createOrJoin(name("MAP"), std::uint64_t{1} << 50);
    EXPECT_FALSE(mapping.valid());
    EXPECT_EQ(mapping.error(), ENOSPC);
    EXPECT_STREQ(mapping.failedOperation(), "posix_fallocate");
}

TEST_F(NamedObjectsTest, OpenOnlyOfAnAbsentName_Fails) {
    NamedMutex mutex = NamedMutex::open(name("MUTEX"));
    NamedEvent event = NamedEvent::open(name("EVENT"));
    EXPECT_FALSE(mutex.valid());
    EXPECT_EQ(mutex.error(), ENOENT);
    EXPECT_FALSE(event.valid());
    EXPECT_EQ(event.error(), ENOENT);
}

// ---- fresh objects under a held name ----------------------------------------------------------

TEST_F(NamedObjectsTest, CreateFreshUnderAHeldName_TheHolderKeepsTheOldObjectAndSeesItReplaced) {
    PipedChild holder = startIpcHelper();
    ASSERT_EQ(holder.ask("mapping " + name("MAP") + " 4096"), "ok 4096");
    ASSERT_EQ(holder.ask("write 0 1234"), "ok");
    ASSERT_EQ(holder.ask("current"), "current 1");

    NamedMapping fresh = NamedMapping::createFresh(name("MAP"), 8192);
    ASSERT_TRUE(fresh.valid()) << std::strerror(fresh.error());
    EXPECT_EQ(fresh.size(), 8192u) << "made at its own size, not joined";
    EXPECT_TRUE(fresh.isCurrent());
    MappedView view = MappedView::map(fresh, 8192, MappedView::Access::ReadWrite);
    EXPECT_EQ(wordAt(view, 0), 0u);
    wordAt(view, 0) = 99;

    EXPECT_EQ(holder.ask("current"), "current 0");
    EXPECT_EQ(holder.ask("read 0"), "value 1234") << "the old object stays valid for its holder";
    ASSERT_EQ(holder.ask("close"), "ok");
    EXPECT_TRUE(shmEntryExists(name("MAP"))) << "the old object's last close leaves the new name alone";
    EXPECT_TRUE(fresh.isCurrent());
}

TEST_F(NamedObjectsTest, CreateFreshOverADirectory_FailsAndLeavesIt) {
    const std::filesystem::path directory = "/dev/shm/" + name("MUTEX");
    ASSERT_TRUE(std::filesystem::create_directory(directory));
    NamedMutex mutex = NamedMutex::createFresh(name("MUTEX"));
    EXPECT_FALSE(mutex.valid());
    EXPECT_EQ(mutex.error(), EISDIR);
    EXPECT_TRUE(std::filesystem::is_directory(directory));
    std::filesystem::remove(directory);
}

// ---- group and mode of shared runs -------------------------------------------------------------

TEST_F(NamedObjectsTest, GroupAndModeFromTheEnvironment_AreGivenToCreatedObjects) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "giving an object a group of one's choice needs root";
    }
    PipedChild creator = startIpcHelper({}, {{kObjectGroupVariable, "4242"}, {kObjectModeVariable, "0640"}});
    ASSERT_EQ(creator.ask("mapping " + name("MAP") + " 4096"), "ok 4096");
    struct stat status {};
    ASSERT_EQ(::stat(("/dev/shm/" + name("MAP")).c_str(), &status), 0);
    EXPECT_EQ(status.st_gid, 4242u);
    EXPECT_EQ(status.st_mode & 0777, 0640u) << "exactly, whatever the umask";
}

TEST_F(NamedObjectsTest, UnusableGroupOrMode_FailsEveryCreation) {
    for (const auto& [variable, value] :
         {std::pair{kObjectModeVariable, "0999"}, std::pair{kObjectModeVariable, "rw-rw----"},
          std::pair{kObjectGroupVariable, "no-such-group-here"}}) {
        PipedChild creator = startIpcHelper({}, {{variable, value}});
        EXPECT_EQ(creator.ask("mapping " + name("MAP") + " 4096"), "error " + std::to_string(EINVAL))
            << value;
    }
}

// ---- crashes and races ------------------------------------------------------------------------

TEST_F(NamedObjectsTest, KilledHolder_LeavesAStaleObjectThatTheNextOpenerRecreates) {
    {
        PipedChild holder = startIpcHelper();
        ASSERT_EQ(holder.ask("mapping " + name("MAP") + " 8192"), "ok 8192");
        ASSERT_EQ(holder.ask("write 0 1234"), "ok");
        holder.kill(PipedChild::Signal::Kill);
        holder.wait();
    }
    ASSERT_TRUE(shmEntryExists(name("MAP"))) << "a killed holder cannot remove its object";

    NamedMapping mapping = NamedMapping::createOrJoin(name("MAP"), 4096);
    ASSERT_TRUE(mapping.valid());
    EXPECT_EQ(mapping.size(), 4096u) << "a stale object is re-created, not joined";
    MappedView view = MappedView::map(mapping, 4096, MappedView::Access::ReadOnly);
    EXPECT_EQ(wordAt(view, 0), 0u);
}

TEST_F(NamedObjectsTest, StaleMutexLeftLocked_IsRecreatedUnlocked) {
    {
        auto holder = startLockedHolder(name("MUTEX"));
        holder->kill(PipedChild::Signal::Kill);
        holder->wait();
    }
    NamedMutex mutex = NamedMutex::createOrJoin(name("MUTEX"));
    EXPECT_EQ(mutex.lockFor(0ms), WaitResult::Acquired) << "fresh, neither held nor abandoned";
    EXPECT_TRUE(mutex.unlock());
}

TEST_F(NamedObjectsTest, StaleEventLeftSet_IsRecreatedWithTheNewState) {
    {
        PipedChild holder = startIpcHelper();
        ASSERT_EQ(holder.ask("create-event " + name("EVENT")), "ok");
        holder.kill(PipedChild::Signal::Kill);
        holder.wait();
    }
    NamedEvent event = NamedEvent::createOrJoin(name("EVENT"), NamedEvent::Reset::Manual, false);
    EXPECT_EQ(event.wait(0ms), WaitResult::TimedOut);
    ASSERT_TRUE(event.set());
    EXPECT_EQ(event.wait(0ms), WaitResult::Acquired);
    EXPECT_EQ(event.wait(0ms), WaitResult::Acquired) << "manual reset, as this opener asked";
}

TEST_F(NamedObjectsTest, OpenOnlyOfAStaleObject_FailsAndRemovesIt) {
    {
        PipedChild holder = startIpcHelper();
        ASSERT_EQ(holder.ask("mutex " + name("MUTEX")), "ok");
        holder.kill(PipedChild::Signal::Kill);
        holder.wait();
    }
    ASSERT_TRUE(shmEntryExists(name("MUTEX")));
    NamedMutex mutex = NamedMutex::open(name("MUTEX"));
    EXPECT_FALSE(mutex.valid());
    EXPECT_EQ(mutex.error(), ENOENT);
    EXPECT_FALSE(shmEntryExists(name("MUTEX")));
}

TEST_F(NamedObjectsTest, OpenerKilledDuringInitialisation_DoesNotWedgeOthers) {
    PipedChild stuck = startIpcHelper({"hang-in-init", name("MAP"), "8192"});
    ASSERT_EQ(stuck.readLine(), "initialising");

    PipedChild waiting = startIpcHelper();
    waiting.writeLine("mapping " + name("MAP") + " 4096");
    EXPECT_EQ(waiting.readLine(200ms), std::nullopt) << "the open must wait for the initialisation";

    stuck.kill(PipedChild::Signal::Kill);
    stuck.wait();
    EXPECT_EQ(waiting.readLine(), "ok 4096") << "the half-made object is made afresh";
    EXPECT_EQ(waiting.ask("read 0"), "value 0");
}

TEST_F(NamedObjectsTest, OpenRacingTheLastClose_NeverJoinsADyingObject) {
    constexpr const char* kIterations = "2000";
    PipedChild first = startIpcHelper({"churn", name("MAP"), kIterations});
    PipedChild second = startIpcHelper({"churn", name("MAP"), kIterations});
    EXPECT_EQ(first.readLine(120s), "done");
    EXPECT_EQ(second.readLine(120s), "done");
    EXPECT_EQ(first.wait(120s), ExitStatus::exitedWith(0));
    EXPECT_EQ(second.wait(120s), ExitStatus::exitedWith(0));
}

// ---- mutexes ----------------------------------------------------------------------------------

TEST_F(NamedObjectsTest, MutexHolderKilled_HandsTheMutexOverAsAbandoned) {
    NamedMutex mutex = NamedMutex::createOrJoin(name("MUTEX"));
    NamedMapping mapping = NamedMapping::createOrJoin(name("MAP"), 4096);
    MappedView view = MappedView::map(mapping, 4096, MappedView::Access::ReadWrite);
    ASSERT_TRUE(mutex.valid() && view.valid());
    {
        auto holder = startLockedHolder(name("MUTEX"));
        ASSERT_EQ(holder->ask("mapping " + name("MAP") + " 4096"), "ok 4096");
        ASSERT_EQ(holder->ask("write 0 31"), "ok");
        EXPECT_EQ(mutex.lockFor(0ms), WaitResult::TimedOut);
        holder->kill(PipedChild::Signal::Kill);
        holder->wait();
    }
    EXPECT_EQ(mutex.lockFor(30s), WaitResult::Abandoned);
    EXPECT_EQ(wordAt(view, 0), 31u);
    wordAt(view, 0) = 32;
    ASSERT_TRUE(mutex.unlock());

    PipedChild next = startIpcHelper();
    ASSERT_EQ(next.ask("mutex " + name("MUTEX")), "ok");
    ASSERT_EQ(next.ask("mapping " + name("MAP") + " 4096"), "ok 4096");
    EXPECT_EQ(next.ask("lock"), "ok") << "the mutex is consistent again";
    EXPECT_EQ(next.ask("read 0"), "value 32");
    EXPECT_EQ(next.ask("unlock"), "ok");
    EXPECT_EQ(mutex.lockFor(30s), WaitResult::Acquired);
    EXPECT_TRUE(mutex.unlock());
}

TEST_F(NamedObjectsTest, MutexHeldElsewhere_TimedLockTimesOutThenSucceedsAfterRelease) {
    NamedMutex mutex = NamedMutex::createOrJoin(name("MUTEX"));
    auto holder = startLockedHolder(name("MUTEX"));

    EXPECT_EQ(mutex.lockFor(100ms), WaitResult::TimedOut);
    EXPECT_EQ(mutex.lockFor(0ms), WaitResult::TimedOut);
    EXPECT_FALSE(mutex.unlock()) << "only the owner may release it";

    ASSERT_EQ(holder->ask("unlock"), "ok");
    EXPECT_EQ(mutex.lockFor(30s), WaitResult::Acquired);
    EXPECT_EQ(mutex.lockFor(0ms), WaitResult::Acquired) << "the owner may take it again";
    EXPECT_TRUE(mutex.unlock());
    EXPECT_TRUE(mutex.unlock());
}

TEST_F(NamedObjectsTest, MutexClosedWhileLocked_IsReleasedNotAbandoned) {
    NamedMutex mutex = NamedMutex::createOrJoin(name("MUTEX"));
    auto holder = startLockedHolder(name("MUTEX"));
    ASSERT_EQ(holder->ask("lock"), "ok");
    ASSERT_EQ(holder->ask("close"), "ok");
    EXPECT_EQ(mutex.lockFor(30s), WaitResult::Acquired);
    EXPECT_TRUE(mutex.unlock());
}

// ---- events -----------------------------------------------------------------------------------

class NamedEventTest : public NamedObjectsTest {
  protected:
    // A helper that has opened the event and sleeps in a wait of `timeout`.
    std::unique_ptr<PipedChild> startWaiter(const std::string& eventName, const char* timeout = "60000") {
        auto waiter = std::make_unique<PipedChild>(startIpcHelper());
        EXPECT_EQ(waiter->ask("event " + eventName), "ok");
        waiter->writeLine(std::string("wait ") + timeout);
        EXPECT_TRUE(eventually([&] { return sleepsOnSharedFutex(waiter->pid()); }));
        return waiter;
    }
};

TEST_F(NamedEventTest, ManualEvent_SetResetAndPollAcrossProcesses) {
    NamedEvent event = NamedEvent::createOrJoin(name("EVENT"), NamedEvent::Reset::Manual, false);
    ASSERT_TRUE(event.valid());
    PipedChild other = startIpcHelper();
    ASSERT_EQ(other.ask("event " + name("EVENT")), "ok");
    EXPECT_EQ(other.ask("wait 0"), "TimedOut");

    other.writeLine("wait 60000");
    ASSERT_TRUE(eventually([&] { return sleepsOnSharedFutex(other.pid()); }));
    ASSERT_TRUE(event.set());
    EXPECT_EQ(other.readLine(), "Acquired");
    EXPECT_EQ(other.ask("wait 0"), "Acquired") << "a manual event stays set";
    EXPECT_EQ(event.wait(0ms), WaitResult::Acquired);

    ASSERT_TRUE(event.reset());
    EXPECT_EQ(other.ask("wait 0"), "TimedOut");
    EXPECT_EQ(event.wait(50ms), WaitResult::TimedOut);
}

TEST_F(NamedEventTest, InitiallySet_IsSignalledForTheFirstWaitOnly) {
    NamedEvent event = NamedEvent::createOrJoin(name("EVENT"), NamedEvent::Reset::Auto, true);
    PipedChild other = startIpcHelper();
    ASSERT_EQ(other.ask("event " + name("EVENT")), "ok");
    EXPECT_EQ(other.ask("wait 0"), "Acquired");
    EXPECT_EQ(other.ask("wait 0"), "TimedOut") << "the wait it released reset it";
    ASSERT_TRUE(event.set());
    EXPECT_EQ(other.ask("wait 0"), "Acquired");
}

TEST_F(NamedEventTest, PulseWithoutWaiters_IsNotSeenByALaterWaiter) {
    NamedEvent event = NamedEvent::createOrJoin(name("EVENT"), NamedEvent::Reset::Auto, false);
    ASSERT_TRUE(event.pulse());
    PipedChild later = startIpcHelper();
    ASSERT_EQ(later.ask("event " + name("EVENT")), "ok");
    EXPECT_EQ(later.ask("wait 0"), "TimedOut");
    EXPECT_EQ(later.ask("wait 200"), "TimedOut");
}

TEST_F(NamedEventTest, PulseWithOneWaiter_WakesIt) {
    NamedEvent event = NamedEvent::createOrJoin(name("EVENT"), NamedEvent::Reset::Auto, false);
    auto waiter = startWaiter(name("EVENT"));
    ASSERT_TRUE(event.pulse());
    EXPECT_EQ(waiter->readLine(), "Acquired");
    EXPECT_EQ(waiter->ask("wait 0"), "TimedOut") << "a pulse leaves the event not signalled";
}

TEST_F(NamedEventTest, PulseWithSeveralWaiters_WakesExactlyOnePerPulse) {
    NamedEvent event = NamedEvent::createOrJoin(name("EVENT"), NamedEvent::Reset::Auto, false);
    std::vector<std::unique_ptr<PipedChild>> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.push_back(startWaiter(name("EVENT")));
    }
    // Collects the waiters that answered "Acquired" until `enough` did or `timeout` passed.
    const auto collectWoken = [&](std::size_t enough, std::chrono::milliseconds timeout) {
        std::size_t woken = 0;
        eventually(
            [&] {
                for (auto& waiter : waiters) {
                    if (waiter && waiter->readLine(1ms) == "Acquired") {
                        waiter.reset();
                        ++woken;
                    }
                }
                return woken >= enough;
            },
            timeout);
        return woken;
    };
    for (std::size_t pulses = 1; pulses <= 3; ++pulses) {
        ASSERT_TRUE(event.pulse());
        // The first answer may take long on a loaded machine; a second must never come.
        std::size_t woken = collectWoken(1, 30s);
        woken += collectWoken(waiters.size(), 300ms);
        EXPECT_EQ(woken, 1u) << "after pulse " << pulses;
    }
}

TEST_F(NamedEventTest, ManualPulse_WakesEveryWaiterAndLeavesTheEventReset) {
    NamedEvent event = NamedEvent::createOrJoin(name("EVENT"), NamedEvent::Reset::Manual, false);
    auto first = startWaiter(name("EVENT"));
    auto second = startWaiter(name("EVENT"));
    ASSERT_TRUE(event.pulse());
    EXPECT_EQ(first->readLine(), "Acquired");
    EXPECT_EQ(second->readLine(), "Acquired");
    EXPECT_EQ(event.wait(0ms), WaitResult::TimedOut);
}

TEST_F(NamedEventTest, KilledWaiter_DoesNotBreakLaterPulses) {
    NamedEvent event = NamedEvent::createOrJoin(name("EVENT"), NamedEvent::Reset::Auto, false);
    {
        auto doomed = startWaiter(name("EVENT"));
        doomed->kill(PipedChild::Signal::Kill);
        doomed->wait();
    }
    auto waiter = startWaiter(name("EVENT"));
    ASSERT_TRUE(event.pulse());
    EXPECT_EQ(waiter->readLine(), "Acquired");
    auto next = startWaiter(name("EVENT"));
    ASSERT_TRUE(event.set());
    EXPECT_EQ(next->readLine(), "Acquired");
}

TEST_F(NamedEventTest, WaitWithTimeout_TimesOut) {
    NamedEvent event = NamedEvent::createOrJoin(name("EVENT"), NamedEvent::Reset::Auto, false);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(event.wait(100ms), WaitResult::TimedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 100ms);
}

}  // namespace
