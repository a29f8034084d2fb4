// Named objects shared between the processes of one machine: file mappings, mutexes and events.
//
// A named object `N` is the POSIX shared-memory object `/N` (the file `/dev/shm/N`); the name is
// used exactly as given, with nothing added. Objects live while some process holds them: the last
// holder to close (or to die) removes the name and the content with it, and an object left behind
// by a killed holder is stale and re-created fresh by the next opener. A process that exits
// without closing (or is killed) leaves its files in /dev/shm until the next open and close of
// the name, as nobody runs the last close for it.
//
// Every object, every view included, is a hold of its own: closing a mapping while one of its
// views is mapped keeps the object alive until the view goes. Holds are not inherited across
// `exec`; a child made by `fork` alone shares its parent's holds, so open objects after a fork.
// Objects are made with mode 0666 less the umask, or with the group and mode of
// object_access.h: all processes that share them need write access, since every hold takes a
// lock on the object's file.
//
// Nothing here throws. Every factory returns an object that is either valid or carries the
// `errno` of the failing step (`error()`), so that the transport can return bools and the few
// throwing users can word their own message with `std::strerror(error())`.
//
//   auto mapping = NamedMapping::createOrJoin("N_MAP_PARAM", 144);
//   auto view = MappedView::map(mapping, 144, MappedView::Access::ReadWrite);
//   auto mutex = NamedMutex::createOrJoin("N_MUTEX_PARAM");
//   if (view.valid() && mutex.valid() && mutex.lock()) { ...; mutex.unlock(); }
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace ovtx::system::ipc::v2 {

namespace internal {

enum class OpenMode;

// What a named mutex and a named event hold: the object's descriptor, its state as mapped here,
// and the last failure. Moving leaves the source empty.
struct HeldState {
    int fd = -1;
    void* shared = nullptr;
    int error = 0;
    const char* failedOperation = nullptr;
    std::string name;

    HeldState() = default;
    HeldState(HeldState&& other) noexcept;
    HeldState& operator=(HeldState&& other) noexcept;
    HeldState(const HeldState&) = delete;
    HeldState& operator=(const HeldState&) = delete;
    ~HeldState() = default;

    bool fail(int code, const char* operation);  // records the failure, returns false
};

}  // namespace internal

// Outcome of a wait with a timeout.
enum class WaitResult {
    Acquired,   // the mutex is held, or the event was signalled
    Abandoned,  // the mutex's previous holder died; it is now held and consistent again
    TimedOut,
    Failed,  // error() of the object tells why
};

// A process's hold on a named file mapping (the page-file section of CreateFileMapping).
// The object holds the block's bytes from offset 0, zero-filled on creation and rounded up to
// whole pages, as sections are.
class NamedMapping {
  public:
    // Creates the object at `size` bytes rounded up to whole pages, or joins an existing one whose
    // size then stands.
    // The memory is reserved at creation, so a full /dev/shm fails here and not later.
    static NamedMapping createOrJoin(std::string_view name, std::uint64_t size);
    // Creates the object afresh even when one stands under the name: the name is taken from it,
    // and its holders keep it, nameless, for as long as they hold it (see isCurrent). A
    // directory under the name is never removed (EISDIR); another user's object that can't be
    // removed is joined as by createOrJoin.
    static NamedMapping createFresh(std::string_view name, std::uint64_t size);

    NamedMapping() = default;  // invalid
    NamedMapping(NamedMapping&& other) noexcept;
    NamedMapping& operator=(NamedMapping&& other) noexcept;
    NamedMapping(const NamedMapping&) = delete;
    NamedMapping& operator=(const NamedMapping&) = delete;
    ~NamedMapping();

    bool valid() const { return m_fd >= 0; }
    int error() const { return m_error; }
    // The system call that failed last, as "shm_open" or "mmap", or null.
    const char* failedOperation() const { return m_failedOperation; }
    const std::string& name() const { return m_name; }
    std::uint64_t size() const { return m_size; }  // the object's real size
    // Whether the name still refers to the object held here: false once a creator replaced it
    // (createFresh) or it was removed.
    bool isCurrent() const;

    // Gives the hold up; the object disappears when nobody else holds it. Returns false on a
    // failing system call (error() tells which); the hold is released all the same.
    bool close();

  private:
    friend class MappedView;
    static NamedMapping hold(std::string_view name, std::uint64_t size, internal::OpenMode mode);

    int m_fd = -1;
    int m_error = 0;
    const char* m_failedOperation = nullptr;
    std::string m_name;
    std::uint64_t m_size = 0;
};

// A mapped view of a named mapping. A view keeps its object alive on its own, as on the original
// platform, so the mapping's handle may be closed before the view is unmapped.
class MappedView {
  public:
    enum class Access { ReadOnly, ReadWrite };

    // Maps the first `size` bytes. Fails (EINVAL) when the object is smaller than `size`.
    // `prefault` touches every page once, so that the first lap of a ring runs at memory speed.
    static MappedView map(const NamedMapping& mapping, std::size_t size, Access access,
                          bool prefault = false);

    MappedView() = default;  // invalid
    MappedView(MappedView&& other) noexcept;
    MappedView& operator=(MappedView&& other) noexcept;
    MappedView(const MappedView&) = delete;
    MappedView& operator=(const MappedView&) = delete;
    ~MappedView();

    bool valid() const { return m_data != nullptr; }
    int error() const { return m_error; }
    // The system call that failed last, as "shm_open" or "mmap", or null.
    const char* failedOperation() const { return m_failedOperation; }
    void* data() const { return m_data; }
    std::size_t size() const { return m_size; }

    bool unmap();

  private:
    void* m_data = nullptr;
    std::size_t m_size = 0;
    int m_holdFd = -1;  // keeps the named object held while the view exists
    std::string m_name;
    int m_error = 0;
    const char* m_failedOperation = nullptr;
};

// A named inter-process mutex (robust, process-shared). A holder that dies hands it to the next
// waiter, which takes it as acquired (WaitResult::Abandoned) and finds it consistent. As a
// Windows mutex, it belongs to the thread that took it, which may take it again (each lock
// wants its unlock), and only that thread may release it.
class NamedMutex {
  public:
    static NamedMutex createOrJoin(std::string_view name);  // CreateMutex, not owned at creation
    static NamedMutex open(std::string_view name);          // OpenMutex: fails (ENOENT) when absent
    // A new mutex under the name, as NamedMapping::createFresh.
    static NamedMutex createFresh(std::string_view name);

    NamedMutex() = default;  // invalid
    NamedMutex(NamedMutex&& other) noexcept;
    NamedMutex& operator=(NamedMutex&& other) noexcept;
    NamedMutex(const NamedMutex&) = delete;
    NamedMutex& operator=(const NamedMutex&) = delete;
    ~NamedMutex();

    bool valid() const { return m_state.fd >= 0; }
    int error() const { return m_state.error; }
    // The system call that failed last, as "shm_open" or "mmap", or null.
    const char* failedOperation() const { return m_state.failedOperation; }
    const std::string& name() const { return m_state.name; }

    // Waits without a timeout; an abandoned mutex counts as acquired. False only on failure.
    bool lock();
    // Waits up to `timeout`, measured on the monotonic clock.
    WaitResult lockFor(std::chrono::milliseconds timeout);
    bool unlock();
    // Releases what this object still holds of the mutex, then gives the hold on it up.
    bool close();

  private:
    explicit NamedMutex(internal::HeldState state) : m_state(std::move(state)) {}

    internal::HeldState m_state;  // the mapped mutex state
    int m_lockDepth = 0;          // locks taken through this object and not released yet
};

// A named event on a futex word in shared memory. Nothing in it counts waiters: a waiter that
// dies leaves no trace, and timeouts run on the monotonic clock.
class NamedEvent {
  public:
    enum class Reset { Manual, Auto };

    // CreateEvent: the reset kind and the initial state apply when the object is created.
    static NamedEvent createOrJoin(std::string_view name, Reset reset, bool initiallySet);
    static NamedEvent open(std::string_view name);  // OpenEvent: fails (ENOENT) when absent
    // A new event under the name, as NamedMapping::createFresh.
    static NamedEvent createFresh(std::string_view name, Reset reset, bool initiallySet);

    NamedEvent() = default;  // invalid
    NamedEvent(NamedEvent&& other) noexcept;
    NamedEvent& operator=(NamedEvent&& other) noexcept;
    NamedEvent(const NamedEvent&) = delete;
    NamedEvent& operator=(const NamedEvent&) = delete;
    ~NamedEvent();

    bool valid() const { return m_state.fd >= 0; }
    int error() const { return m_state.error; }
    // The system call that failed last, as "shm_open" or "mmap", or null.
    const char* failedOperation() const { return m_state.failedOperation; }
    const std::string& name() const { return m_state.name; }

    // Signals the event: a manual-reset event releases every waiter and stays signalled until
    // `reset`; an auto-reset event stays signalled until one wait consumes it.
    bool set();
    bool reset();
    // Wakes at most one process that waits at this moment (auto-reset), or every waiter
    // (manual-reset), and leaves the event not signalled; nobody is woken if nobody waits. A
    // waiter that is just entering its wait as the pulse comes may miss it, as with PulseEvent.
    bool pulse();
    // A timeout of 0 polls. An auto-reset event is reset by the wait it releases.
    WaitResult wait(std::chrono::milliseconds timeout);
    bool close();

  private:
    explicit NamedEvent(internal::HeldState state) : m_state(std::move(state)) {}

    internal::HeldState m_state;  // the mapped event state
};

}  // namespace ovtx::system::ipc::v2
