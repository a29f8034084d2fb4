#include "system/ipc/generic_shared_memory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "system/ipc/testing/ipc_helper.h"
#include "testing/shm.h"

namespace {

using ovtx::system::ipc::v2::GenericSharedMemory;
using namespace ovtx::system::ipc::v2::testing;
using namespace ovtx::test_support::v1;
using ovtx::system::process::v1::ExitStatus;

static_assert(!std::is_copy_constructible_v<GenericSharedMemory>);
static_assert(!std::is_copy_assignable_v<GenericSharedMemory>);
static_assert(std::has_virtual_destructor_v<GenericSharedMemory>);

class GenericSharedMemoryTest : public ShmTest {};

std::uint32_t* words(const GenericSharedMemory& memory) {
    return static_cast<std::uint32_t*>(memory.view());
}

TEST_F(GenericSharedMemoryTest, TwoProcesses_ShareTheBlockAndTheFirstSize) {
    PipedChild first = startIpcHelper();
    ASSERT_EQ(first.ask("generic " + name("2") + " 8"), "ok");
    ASSERT_EQ(first.ask("lock"), "ok");
    ASSERT_EQ(first.ask("write 4 77"), "ok");
    ASSERT_EQ(first.ask("unlock"), "ok");
    EXPECT_TRUE(shmEntryExists(name("2_mapping")));
    EXPECT_TRUE(shmEntryExists(name("2_mutex")));

    GenericSharedMemory memory(name("2"), 4);
    memory.lock();
    EXPECT_EQ(words(memory)[1], 77u) << "the second opener gets the first one's 8 bytes";
    words(memory)[0] = 5;
    memory.unlock();
    EXPECT_EQ(first.ask("read 0"), "value 5");
}

TEST_F(GenericSharedMemoryTest, StorePastTheAskedSizeWithinThePage_IsSharedToo) {
    GenericSharedMemory memory(name("0"), 4);
    words(memory)[1] = 8;  // the format block stores 8 bytes into a block asked for with 4
    PipedChild other = startIpcHelper();
    ASSERT_EQ(other.ask("generic " + name("0") + " 4"), "ok");
    EXPECT_EQ(other.ask("read 4"), "value 8");
}

TEST_F(GenericSharedMemoryTest, HolderKilledUnderTheLock_NextLockTakesItAndTheBlockStays) {
    GenericSharedMemory memory(name("1"), 8);
    {
        PipedChild holder = startIpcHelper();
        ASSERT_EQ(holder.ask("generic " + name("1") + " 8"), "ok");
        ASSERT_EQ(holder.ask("lock"), "ok");
        ASSERT_EQ(holder.ask("write 0 3"), "ok");
        holder.kill(PipedChild::Signal::Kill);
        holder.wait();
    }
    memory.lock();
    EXPECT_EQ(words(memory)[0], 3u);
    memory.unlock();
}

struct RefusedName {
    const char* what;
    std::string base;
    int error;
};

void PrintTo(const RefusedName& name, std::ostream* out) {
    *out << name.what;
}

class GenericSharedMemoryRefusedNameTest : public GenericSharedMemoryTest,
                                           public ::testing::WithParamInterface<RefusedName> {};

TEST_P(GenericSharedMemoryRefusedNameTest, Constructor_ThrowsTheFileMappingText) {
    const RefusedName& refused = GetParam();
    const std::string mapping = refused.base + "_mapping";
    try {
        GenericSharedMemory memory(refused.base, 12);
        FAIL() << "a refused name must throw";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), "Can't create file mapping with name " + mapping +
                                             " (size: 12): " + std::strerror(refused.error));
    }
}

INSTANTIATE_TEST_SUITE_P(Names, GenericSharedMemoryRefusedNameTest,
                         ::testing::Values(RefusedName{"slash", "ipc_test_dir/base", EINVAL},
                                           RefusedName{"too_long", std::string(NAME_MAX, 'n'), ENAMETOOLONG}),
                         [](const auto& info) { return std::string(info.param.what); });

}  // namespace
