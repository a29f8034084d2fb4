// The other process of the ipc tests. It opens named objects on command and reports on stdout,
// one line per command, so that a test can drive it step by step and kill it at any point.
//
//   ipc_test_helper                      reads commands from stdin (see `runCommand`)
//   ipc_test_helper hang-in-init NAME N  creates the mapping NAME of N bytes, stopping for good
//                                        inside its initialisation after printing "initialising"
//   ipc_test_helper churn NAME COUNT     opens and closes the mapping NAME COUNT times, checking
//                                        each time that it holds the object the name refers to
//   ipc_test_helper pulse-waiter BASE    waits on the event BASE_EVENT until word 2 of the mapping
//                                        BASE_MAP is set, storing into word 1 the nanoseconds from
//                                        the steady-clock stamp in word 0 to each wait's return
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "system/ipc/generic_shared_memory.h"
#include "system/ipc/named_objects.h"
#include "system/ipc/object_hold.h"
#include "system/ipc/process_claim.h"

namespace {

using namespace ovtx::system::ipc::v2;
using namespace std::chrono_literals;

const char* resultName(WaitResult result) {
    switch (result) {
        case WaitResult::Acquired:
            return "Acquired";
        case WaitResult::Abandoned:
            return "Abandoned";
        case WaitResult::TimedOut:
            return "TimedOut";
        case WaitResult::Failed:
            return "Failed";
    }
    return "?";
}

struct Objects {
    NamedMapping mapping;
    MappedView view;
    NamedMutex mutex;
    NamedEvent event;
    std::unique_ptr<GenericSharedMemory> generic;
    ProcessClaim claim;

    std::uint32_t* word(std::size_t offset) const {
        void* base = generic ? generic->view() : view.data();
        return reinterpret_cast<std::uint32_t*>(static_cast<char*>(base) + offset);
    }
};

std::string failure(int error) {
    return "error " + std::to_string(error);
}

// One command line in, one answer line out.
std::string runCommand(Objects& objects, const std::string& line) {
    std::istringstream in(line);
    std::string command;
    in >> command;
    if (command == "mapping") {  // mapping NAME SIZE: create or join, map all of it
        std::string name;
        std::uint64_t size = 0;
        in >> name >> size;
        objects.mapping = NamedMapping::createOrJoin(name, size);
        if (!objects.mapping.valid()) {
            return failure(objects.mapping.error());
        }
        objects.view =
            MappedView::map(objects.mapping, objects.mapping.size(), MappedView::Access::ReadWrite);
        return objects.view.valid() ? "ok " + std::to_string(objects.mapping.size())
                                    : failure(objects.view.error());
    }
    if (command == "current") {  // whether the mapping's name still refers to it
        return std::string("current ") + (objects.mapping.isCurrent() ? "1" : "0");
    }
    if (command == "generic") {  // generic BASE SIZE
        std::string name;
        std::uint32_t size = 0;
        in >> name >> size;
        try {
            objects.generic = std::make_unique<GenericSharedMemory>(name, size);
        } catch (const std::exception& e) {
            return std::string("error ") + e.what();
        }
        return "ok";
    }
    if (command == "write") {  // write OFFSET VALUE (32 bits)
        std::size_t offset = 0;
        std::uint32_t value = 0;
        in >> offset >> value;
        *objects.word(offset) = value;
        return "ok";
    }
    if (command == "read") {  // read OFFSET
        std::size_t offset = 0;
        in >> offset;
        return "value " + std::to_string(*objects.word(offset));
    }
    if (command == "mutex") {  // mutex NAME: create or join
        std::string name;
        in >> name;
        objects.mutex = NamedMutex::createOrJoin(name);
        return objects.mutex.valid() ? "ok" : failure(objects.mutex.error());
    }
    if (command == "lock") {
        if (objects.generic) {
            objects.generic->lock();
            return "ok";
        }
        return objects.mutex.lock() ? "ok" : failure(objects.mutex.error());
    }
    if (command == "unlock") {
        if (objects.generic) {
            objects.generic->unlock();
            return "ok";
        }
        return objects.mutex.unlock() ? "ok" : failure(objects.mutex.error());
    }
    if (command == "create-event") {  // create-event NAME: create or join, auto-reset, set
        std::string name;
        in >> name;
        objects.event = NamedEvent::createOrJoin(name, NamedEvent::Reset::Auto, true);
        return objects.event.valid() ? "ok" : failure(objects.event.error());
    }
    if (command == "event") {  // event NAME: open only
        std::string name;
        in >> name;
        objects.event = NamedEvent::open(name);
        return objects.event.valid() ? "ok" : failure(objects.event.error());
    }
    if (command == "wait") {  // wait MILLISECONDS
        long milliseconds = 0;
        in >> milliseconds;
        return resultName(objects.event.wait(std::chrono::milliseconds(milliseconds)));
    }
    if (command == "set") {
        return objects.event.set() ? "ok" : failure(objects.event.error());
    }
    if (command == "claim") {  // claim NAME
        std::string name;
        in >> name;
        objects.claim = ProcessClaim::take(name);
        return objects.claim.held() ? "ok" : failure(objects.claim.error());
    }
    if (command == "close") {
        objects = Objects{};
        return "ok";
    }
    return "error unknown command " + command;
}

int serveCommands() {
    Objects objects;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::cout << runCommand(objects, line) << std::endl;
    }
    return 0;
}

void hangInInitialisation(std::string_view) {
    std::cout << "initialising" << std::endl;
    for (;;) {
        ::pause();
    }
}

// True when this process has the object `name` open but the name no longer refers to it.
bool holdsUnlinkedObject(const std::string& name) {
    const std::string unlinked = "/dev/shm/" + name + " (deleted)";
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored).string() == unlinked) {
            return true;
        }
    }
    return false;
}

// Opens and closes `name` over and over against another process doing the same: each open must
// join the living object, never one that a concurrent last close is removing.
int churn(const std::string& name, int count) {
    for (int i = 0; i < count; ++i) {
        NamedMapping mapping = NamedMapping::createOrJoin(name, 4096);
        MappedView view = MappedView::map(mapping, 4096, MappedView::Access::ReadWrite);
        if (!mapping.valid() || !view.valid()) {
            std::cout << "error " << mapping.error() << " " << view.error() << std::endl;
            return 1;
        }
        if (holdsUnlinkedObject(name)) {
            std::cout << "joined a removed object at iteration " << i << std::endl;
            return 1;
        }
    }
    std::cout << "done" << std::endl;
    return 0;
}

// The far end of the latency benchmark.
int waitForPulses(const std::string& base) {
    constexpr std::size_t kSize = 3 * sizeof(std::int64_t);
    NamedMapping mapping = NamedMapping::createOrJoin(base + "_MAP", kSize);
    MappedView view = MappedView::map(mapping, kSize, MappedView::Access::ReadWrite);
    NamedEvent event = NamedEvent::open(base + "_EVENT");
    if (!view.valid() || !event.valid()) {
        return 1;
    }
    auto* words = static_cast<std::atomic<std::int64_t>*>(view.data());
    const auto now = [] {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    };
    while (words[2].load() == 0) {
        if (event.wait(100ms) == WaitResult::Acquired) {
            words[1].store(now() - words[0].load());
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "hang-in-init" && argc == 4) {
        ovtx::system::ipc::v2::internal::setInitialiseHook(hangInInitialisation);
        NamedMapping mapping = NamedMapping::createOrJoin(argv[2], std::strtoull(argv[3], nullptr, 10));
        return 1;  // not reached while the hook holds the opener
    }
    if (mode == "churn" && argc == 4) {
        return churn(argv[2], std::atoi(argv[3]));
    }
    if (mode == "pulse-waiter" && argc == 3) {
        return waitForPulses(argv[2]);
    }
    return serveCommands();
}
