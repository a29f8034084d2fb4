#include "system/ipc/named_objects.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <ctime>
#include <new>
#include <utility>

#include "system/ipc/object_hold.h"
#include "system/ipc/posix_call.h"

namespace ovtx::system::ipc::v2 {

namespace internal {

HeldState::HeldState(HeldState&& other) noexcept {
    *this = std::move(other);
}

HeldState& HeldState::operator=(HeldState&& other) noexcept {
    if (this != &other) {
        fd = std::exchange(other.fd, -1);
        shared = std::exchange(other.shared, nullptr);
        error = std::exchange(other.error, 0);
        failedOperation = std::exchange(other.failedOperation, nullptr);
        name = std::move(other.name);
    }
    return *this;
}

bool HeldState::fail(int code, const char* operation) {
    error = code;
    failedOperation = operation;
    return false;
}

}  // namespace internal

namespace {

using internal::acquireHold;
using internal::HeldState;
using internal::HoldResult;
using internal::ObjectStep;
using internal::OpenMode;
using internal::posixCall;
using internal::pthreadCall;
using internal::releaseHold;
using internal::SysError;
using internal::sysError;

// ---- object files ---------------------------------------------------------------------------

// Sections are page-granular: a block asked at 4 bytes still maps as a whole page, so a reader
// that maps a block's full layout never fails on a creator that asked for less.
std::uint64_t wholePages(std::uint64_t size) {
    const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    return size == 0 ? 0 : (size + page - 1) / page * page;
}

// Empties the file of a lone opener, then gives it `size` reserved, zeroed bytes.
SysError makeFresh(int fd, std::uint64_t size) {
    SysError error;
    posixCall(error, "ftruncate", [&] { return ::ftruncate(fd, 0); });
    posixCall(error, "ftruncate", [&] { return ::ftruncate(fd, static_cast<off_t>(size)); });
    if (!error && size > 0) {
        pthreadCall(error, "posix_fallocate",
                    [&] { return ::posix_fallocate(fd, 0, static_cast<off_t>(size)); });
    }
    return error;
}

SysError fileSize(int fd, std::uint64_t& size) {
    SysError error;
    struct stat status {};
    if (posixCall(error, "fstat", [&] { return ::fstat(fd, &status); }) == 0) {
        size = static_cast<std::uint64_t>(status.st_size);
    }
    return error;
}

// ---- small shared states (mutex, event) -----------------------------------------------------

struct MutexState {
    pthread_mutex_t mutex;
};

struct EventState {
    // Bit 0: signalled. Bits 1 to 31: the pulse generation, advanced by every pulse, so that a
    // waiter woken by the futex can tell a pulse from a spurious wake without counting waiters.
    std::atomic<std::uint32_t> word;
    std::uint32_t manualReset;
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t), "the futex word is 32 bits");

constexpr std::uint32_t kSignalled = 1;
constexpr std::uint32_t kGenerationStep = 2;

// mmap's failure is MAP_FAILED rather than -1, hence this wrapper beside posixCall.
void* mapShared(SysError& error, int fd, std::size_t size, int protection) {
    void* address = ::mmap(nullptr, size, protection, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) {
        if (!error) {
            error = sysError(errno, "mmap");
        }
        return nullptr;
    }
    return address;
}

SysError mapState(int fd, std::size_t size, void*& shared) {
    SysError error;
    shared = mapShared(error, fd, size, PROT_READ | PROT_WRITE);
    return error;
}

// Joins an existing state: the file must be large enough for it (another kind of object of the
// same name is not).
SysError joinState(int fd, std::size_t size, void*& shared) {
    std::uint64_t existing = 0;
    if (SysError error = fileSize(fd, existing)) {
        return error;
    }
    if (existing < size) {
        return sysError(EINVAL, "fstat");
    }
    return mapState(fd, size, shared);
}

// Creates the state: a fresh file, mapped, then `construct`ed in place.
template <typename Construct>
SysError createState(int fd, std::size_t size, void*& shared, Construct&& construct) {
    SysError error = makeFresh(fd, size);
    if (!error) {
        error = mapState(fd, size, shared);
    }
    if (!error && (error = construct(shared))) {
        ::munmap(shared, size);
        shared = nullptr;
    }
    return error;
}

template <typename Construct>
HeldState holdState(std::string_view name, OpenMode mode, std::size_t size, Construct&& construct) {
    HeldState hold;
    hold.name = std::string(name);
    const ObjectStep initialise = [&](int fd) { return createState(fd, size, hold.shared, construct); };
    const ObjectStep join = [&](int fd) { return joinState(fd, size, hold.shared); };
    const HoldResult result = acquireHold(name, mode, initialise, join);
    hold.fd = result.fd;
    if (result.error) {
        if (hold.shared != nullptr) {  // a step after the mapping failed
            ::munmap(std::exchange(hold.shared, nullptr), size);
        }
        hold.fail(result.error.code, result.error.operation);
    }
    return hold;
}

// Unmaps the state and gives the hold up; false (with the failure recorded) on a failing call.
bool releaseState(HeldState& hold, std::size_t size) {
    if (hold.fd < 0) {
        return true;
    }
    SysError error;
    if (hold.shared != nullptr) {
        posixCall(error, "munmap", [&] { return ::munmap(std::exchange(hold.shared, nullptr), size); });
    }
    const SysError released = releaseHold(hold.name, std::exchange(hold.fd, -1));
    if (!error) {
        error = released;
    }
    return error ? hold.fail(error.code, error.operation) : true;
}

SysError constructMutex(void* shared) {
    SysError error;
    pthread_mutexattr_t attributes;
    if (pthreadCall(error, "pthread_mutexattr_init", [&] { return ::pthread_mutexattr_init(&attributes); })) {
        return error;
    }
    pthreadCall(error, "pthread_mutexattr_setpshared",
                [&] { return ::pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED); });
    pthreadCall(error, "pthread_mutexattr_setrobust",
                [&] { return ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST); });
    // The owning thread may take it again, as a Windows-style mutex allows.
    pthreadCall(error, "pthread_mutexattr_settype",
                [&] { return ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE); });
    auto* state = new (shared) MutexState{};
    if (!error) {
        pthreadCall(error, "pthread_mutex_init",
                    [&] { return ::pthread_mutex_init(&state->mutex, &attributes); });
    }
    ::pthread_mutexattr_destroy(&attributes);
    return error;
}

// ---- time and futex -------------------------------------------------------------------------

timespec monotonicDeadline(std::chrono::milliseconds timeout) {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    // Beyond a century is "forever"; this keeps the sum far from overflowing.
    constexpr std::int64_t kForeverMs = 100LL * 365 * 24 * 3600 * 1000;
    const std::int64_t ms = std::clamp<std::int64_t>(timeout.count(), 0, kForeverMs);
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + static_cast<time_t>(ms / 1000);
    long nanoseconds = now.tv_nsec + static_cast<long>(ms % 1000) * 1000000L;
    if (nanoseconds >= 1000000000L) {
        nanoseconds -= 1000000000L;
        ++deadline.tv_sec;
    }
    deadline.tv_nsec = nanoseconds;
    return deadline;
}

std::uint32_t* futexAddress(std::atomic<std::uint32_t>& word) {
    return reinterpret_cast<std::uint32_t*>(&word);
}

// Sleeps while `word` holds `expected`, up to an absolute CLOCK_MONOTONIC deadline (FUTEX_WAIT_BITSET
// without FUTEX_CLOCK_REALTIME). Not private: the word is shared between processes. A signal
// resumes the sleep against the same deadline. Returns 0 when woken, ETIMEDOUT, EAGAIN when the
// word no longer held `expected`, or else the failure in `error`.
int futexWait(SysError& error, std::atomic<std::uint32_t>& word, std::uint32_t expected,
              const timespec& deadline) {
    const long result = posixCall(error, "futex(FUTEX_WAIT_BITSET)",
                                  [&] {
                                      return ::syscall(SYS_futex, futexAddress(word), FUTEX_WAIT_BITSET,
                                                       expected, &deadline, nullptr, FUTEX_BITSET_MATCH_ANY);
                                  },
                                  {ETIMEDOUT, EAGAIN});
    return result == 0 ? 0 : errno;
}

SysError futexWake(std::atomic<std::uint32_t>& word, int count) {
    SysError error;
    posixCall(error, "futex(FUTEX_WAKE)", [&] {
        return ::syscall(SYS_futex, futexAddress(word), FUTEX_WAKE, count, nullptr, nullptr, 0);
    });
    return error;
}

std::uint32_t generation(std::uint32_t word) {
    return word >> 1;
}

}  // namespace

// ---- NamedMapping ---------------------------------------------------------------------------

NamedMapping NamedMapping::createOrJoin(std::string_view name, std::uint64_t size) {
    return hold(name, size, OpenMode::CreateOrJoin);
}

NamedMapping NamedMapping::createFresh(std::string_view name, std::uint64_t size) {
    return hold(name, size, OpenMode::Replace);
}

bool NamedMapping::isCurrent() const {
    return m_fd >= 0 && internal::stillNamed(m_fd);
}

NamedMapping NamedMapping::hold(std::string_view name, std::uint64_t size, internal::OpenMode mode) {
    NamedMapping mapping;
    mapping.m_name = std::string(name);
    const ObjectStep initialise = [size](int fd) { return makeFresh(fd, wholePages(size)); };
    const ObjectStep join = [](int) { return SysError{}; };
    HoldResult hold = acquireHold(name, mode, initialise, join);
    if (!hold.error) {
        hold.error = fileSize(hold.fd, mapping.m_size);
        if (hold.error) {
            releaseHold(name, hold.fd);
            hold.fd = -1;
        }
    }
    mapping.m_fd = hold.fd;
    mapping.m_error = hold.error.code;
    mapping.m_failedOperation = hold.error.operation;
    return mapping;
}

NamedMapping::NamedMapping(NamedMapping&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)),
      m_error(std::exchange(other.m_error, 0)),
      m_failedOperation(std::exchange(other.m_failedOperation, nullptr)),
      m_name(std::move(other.m_name)),
      m_size(std::exchange(other.m_size, 0)) {}

NamedMapping& NamedMapping::operator=(NamedMapping&& other) noexcept {
    if (this != &other) {
        close();
        m_fd = std::exchange(other.m_fd, -1);
        m_error = std::exchange(other.m_error, 0);
        m_failedOperation = std::exchange(other.m_failedOperation, nullptr);
        m_name = std::move(other.m_name);
        m_size = std::exchange(other.m_size, 0);
    }
    return *this;
}

NamedMapping::~NamedMapping() {
    close();
}

bool NamedMapping::close() {
    if (m_fd < 0) {
        return true;
    }
    const SysError error = releaseHold(m_name, std::exchange(m_fd, -1));
    m_size = 0;
    if (error) {
        m_error = error.code;
        m_failedOperation = error.operation;
    }
    return !error;
}

// ---- MappedView -----------------------------------------------------------------------------

namespace {

// Maps the pages in now, as a write fault for a writable view, so that the first use pays no fault.
void prefaultPages(void* data, std::size_t size, MappedView::Access access) {
    const int advice = access == MappedView::Access::ReadWrite ? MADV_POPULATE_WRITE : MADV_POPULATE_READ;
    if (::madvise(data, size, advice) == 0) {
        return;
    }
    // Kernels before 5.14: read every page; another process may be writing, so nothing is stored.
    const long page = ::sysconf(_SC_PAGESIZE);
    const auto* bytes = static_cast<const volatile unsigned char*>(data);
    for (std::size_t offset = 0; offset < size; offset += static_cast<std::size_t>(page)) {
        (void)bytes[offset];
    }
}

}  // namespace

MappedView MappedView::map(const NamedMapping& mapping, std::size_t size, Access access, bool prefault) {
    MappedView view;
    SysError error;
    if (!mapping.valid()) {
        error = sysError(EBADF, "mmap");
    } else if (size == 0 || size > mapping.size()) {
        error = sysError(EINVAL, "mmap");  // as mapping past a section's end
    }
    HoldResult hold;
    if (!error) {
        hold = internal::duplicateHold(mapping.name(), mapping.m_fd);
        error = hold.error;
    }
    if (!error) {
        const int protection = access == Access::ReadWrite ? PROT_READ | PROT_WRITE : PROT_READ;
        void* data = mapShared(error, hold.fd, size, protection);
        if (data == nullptr) {
            releaseHold(mapping.name(), hold.fd);
        } else {
            view.m_data = data;
            view.m_size = size;
            view.m_holdFd = hold.fd;
            view.m_name = mapping.name();
            if (prefault) {
                prefaultPages(data, size, access);
            }
        }
    }
    view.m_error = error.code;
    view.m_failedOperation = error.operation;
    return view;
}

MappedView::MappedView(MappedView&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)),
      m_size(std::exchange(other.m_size, 0)),
      m_holdFd(std::exchange(other.m_holdFd, -1)),
      m_name(std::move(other.m_name)),
      m_error(std::exchange(other.m_error, 0)),
      m_failedOperation(std::exchange(other.m_failedOperation, nullptr)) {}

MappedView& MappedView::operator=(MappedView&& other) noexcept {
    if (this != &other) {
        unmap();
        m_data = std::exchange(other.m_data, nullptr);
        m_size = std::exchange(other.m_size, 0);
        m_holdFd = std::exchange(other.m_holdFd, -1);
        m_name = std::move(other.m_name);
        m_error = std::exchange(other.m_error, 0);
        m_failedOperation = std::exchange(other.m_failedOperation, nullptr);
    }
    return *this;
}

MappedView::~MappedView() {
    unmap();
}

bool MappedView::unmap() {
    if (m_data == nullptr) {
        return true;
    }
    SysError error;
    posixCall(error, "munmap", [&] { return ::munmap(std::exchange(m_data, nullptr), m_size); });
    const SysError released = releaseHold(m_name, std::exchange(m_holdFd, -1));
    m_size = 0;
    if (!error) {
        error = released;
    }
    if (error) {
        m_error = error.code;
        m_failedOperation = error.operation;
    }
    return !error;
}

// ---- NamedMutex -----------------------------------------------------------------------------

namespace {

pthread_mutex_t* mutexOf(void* shared) {
    return &static_cast<MutexState*>(shared)->mutex;
}

EventState& eventOf(void* shared) {
    return *static_cast<EventState*>(shared);
}

}  // namespace

NamedMutex NamedMutex::createOrJoin(std::string_view name) {
    return NamedMutex(holdState(name, OpenMode::CreateOrJoin, sizeof(MutexState), constructMutex));
}

NamedMutex NamedMutex::createFresh(std::string_view name) {
    return NamedMutex(holdState(name, OpenMode::Replace, sizeof(MutexState), constructMutex));
}

NamedMutex NamedMutex::open(std::string_view name) {
    return NamedMutex(holdState(name, OpenMode::OpenOnly, sizeof(MutexState), constructMutex));
}

NamedMutex::NamedMutex(NamedMutex&& other) noexcept
    : m_state(std::move(other.m_state)), m_lockDepth(std::exchange(other.m_lockDepth, 0)) {}

NamedMutex& NamedMutex::operator=(NamedMutex&& other) noexcept {
    if (this != &other) {
        close();
        m_state = std::move(other.m_state);
        m_lockDepth = std::exchange(other.m_lockDepth, 0);
    }
    return *this;
}

NamedMutex::~NamedMutex() {
    close();
}

bool NamedMutex::lock() {
    if (m_state.shared == nullptr) {
        return m_state.fail(EBADF, "pthread_mutex_lock");
    }
    SysError error;
    const int result =
        pthreadCall(error, "pthread_mutex_lock",
                    [&] { return ::pthread_mutex_lock(mutexOf(m_state.shared)); }, {EOWNERDEAD});
    if (result == EOWNERDEAD) {
        pthreadCall(error, "pthread_mutex_consistent",
                    [&] { return ::pthread_mutex_consistent(mutexOf(m_state.shared)); });
    }
    if (error) {
        return m_state.fail(error.code, error.operation);
    }
    ++m_lockDepth;
    return true;
}

WaitResult NamedMutex::lockFor(std::chrono::milliseconds timeout) {
    if (m_state.shared == nullptr) {
        m_state.fail(EBADF, "pthread_mutex_clocklock");
        return WaitResult::Failed;
    }
    const timespec deadline = monotonicDeadline(timeout);
    SysError error;
    const int result = pthreadCall(
        error, "pthread_mutex_clocklock",
        [&] { return ::pthread_mutex_clocklock(mutexOf(m_state.shared), CLOCK_MONOTONIC, &deadline); },
        {EOWNERDEAD, ETIMEDOUT});
    if (result == EOWNERDEAD) {
        pthreadCall(error, "pthread_mutex_consistent",
                    [&] { return ::pthread_mutex_consistent(mutexOf(m_state.shared)); });
    }
    if (error) {
        m_state.fail(error.code, error.operation);
        return WaitResult::Failed;
    }
    if (result == ETIMEDOUT) {
        return WaitResult::TimedOut;
    }
    ++m_lockDepth;
    return result == EOWNERDEAD ? WaitResult::Abandoned : WaitResult::Acquired;
}

bool NamedMutex::unlock() {
    if (m_state.shared == nullptr) {
        return m_state.fail(EBADF, "pthread_mutex_unlock");
    }
    SysError error;
    pthreadCall(error, "pthread_mutex_unlock",
                [&] { return ::pthread_mutex_unlock(mutexOf(m_state.shared)); });
    if (error) {
        return m_state.fail(error.code, error.operation);
    }
    m_lockDepth = std::max(m_lockDepth - 1, 0);
    return true;
}

bool NamedMutex::close() {
    if (m_state.fd < 0) {
        return true;
    }
    // A locked robust mutex stays on the thread's robust list, which must never point into memory
    // that is unmapped: release it first.
    while (m_lockDepth > 0 && unlock()) {
    }
    m_lockDepth = 0;
    return releaseState(m_state, sizeof(MutexState));
}

// ---- NamedEvent -----------------------------------------------------------------------------

namespace {

HeldState holdEvent(std::string_view name, OpenMode mode, NamedEvent::Reset reset, bool initiallySet) {
    const auto construct = [reset, initiallySet](void* shared) {
        auto* state = new (shared) EventState{};
        state->manualReset = reset == NamedEvent::Reset::Manual ? 1 : 0;
        state->word.store(initiallySet ? kSignalled : 0);
        return SysError{};
    };
    return holdState(name, mode, sizeof(EventState), construct);
}

}  // namespace

NamedEvent NamedEvent::createOrJoin(std::string_view name, Reset reset, bool initiallySet) {
    return NamedEvent(holdEvent(name, OpenMode::CreateOrJoin, reset, initiallySet));
}

NamedEvent NamedEvent::createFresh(std::string_view name, Reset reset, bool initiallySet) {
    return NamedEvent(holdEvent(name, OpenMode::Replace, reset, initiallySet));
}

NamedEvent NamedEvent::open(std::string_view name) {
    const auto nothingToConstruct = [](void*) { return SysError{}; };  // an open never creates
    return NamedEvent(holdState(name, OpenMode::OpenOnly, sizeof(EventState), nothingToConstruct));
}

NamedEvent::NamedEvent(NamedEvent&& other) noexcept : m_state(std::move(other.m_state)) {}

NamedEvent& NamedEvent::operator=(NamedEvent&& other) noexcept {
    if (this != &other) {
        close();
        m_state = std::move(other.m_state);
    }
    return *this;
}

NamedEvent::~NamedEvent() {
    close();
}

bool NamedEvent::set() {
    if (m_state.shared == nullptr) {
        return m_state.fail(EBADF, "futex(FUTEX_WAKE)");
    }
    EventState& state = eventOf(m_state.shared);
    state.word.fetch_or(kSignalled);
    // An auto-reset event releases one waiter, which consumes the signal; a manual one, all.
    const SysError error = futexWake(state.word, state.manualReset != 0 ? INT_MAX : 1);
    return error ? m_state.fail(error.code, error.operation) : true;
}

bool NamedEvent::reset() {
    if (m_state.shared == nullptr) {
        return m_state.fail(EBADF, "futex");
    }
    eventOf(m_state.shared).word.fetch_and(~kSignalled);
    return true;
}

bool NamedEvent::pulse() {
    if (m_state.shared == nullptr) {
        return m_state.fail(EBADF, "futex(FUTEX_WAKE)");
    }
    EventState& state = eventOf(m_state.shared);
    // A new generation, not signalled: only waiters asleep on the old word value are woken, and
    // a later waiter finds nothing to consume.
    std::uint32_t word = state.word.load();
    while (!state.word.compare_exchange_weak(word, (word & ~kSignalled) + kGenerationStep)) {
    }
    const SysError error = futexWake(state.word, state.manualReset != 0 ? INT_MAX : 1);
    return error ? m_state.fail(error.code, error.operation) : true;
}

WaitResult NamedEvent::wait(std::chrono::milliseconds timeout) {
    if (m_state.shared == nullptr) {
        m_state.fail(EBADF, "futex(FUTEX_WAIT_BITSET)");
        return WaitResult::Failed;
    }
    EventState& state = eventOf(m_state.shared);
    const bool manualReset = state.manualReset != 0;
    const timespec deadline = monotonicDeadline(timeout);
    bool expired = timeout.count() <= 0;
    std::uint32_t word = state.word.load();
    for (;;) {
        if ((word & kSignalled) != 0) {
            if (manualReset || state.word.compare_exchange_weak(word, word & ~kSignalled)) {
                return WaitResult::Acquired;
            }
            continue;  // another waiter consumed it, or the word moved: look again
        }
        if (expired) {
            return WaitResult::TimedOut;
        }
        SysError error;
        const int result = futexWait(error, state.word, word, deadline);
        if (error) {
            m_state.fail(error.code, error.operation);
            return WaitResult::Failed;
        }
        const std::uint32_t now = state.word.load();
        // Woken by a wake call with a new generation: a pulse chose this waiter. A word that moved
        // before we slept (EAGAIN) means a pulse that was not for us, or a set seen at the top.
        if (result == 0 && generation(now) != generation(word)) {
            return WaitResult::Acquired;
        }
        expired = result == ETIMEDOUT;
        word = now;
    }
}

bool NamedEvent::close() {
    return releaseState(m_state, sizeof(EventState));
}

}  // namespace ovtx::system::ipc::v2
