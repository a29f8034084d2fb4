// A fixed block of named memory shared by the processes of one machine, guarded by a named
// mutex of the same base name.
//
// The daemon keeps its small public blocks (the video format block, the clock block) in it. The
// first process creates the block zero-filled, the others join it and get the first one's size;
// the block lives while some process holds it. The contents have no header: the user casts
// `view()` to what it stores, and touches it only between `lock()` and `unlock()`:
//
//   GenericSharedMemory clock(kClockBase + portName, 8);
//   clock.lock();
//   *static_cast<std::int64_t*>(clock.view()) = 0;
//   clock.unlock();
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "cpp_utils/non_copyable/non_copyable.h"
#include "system/ipc/named_objects.h"

namespace ovtx::system::ipc::v2 {

class GenericSharedMemory : public cpp_utils::non_copyable::v1::NonCopyable {
  public:
    // Creates or joins the mapping `<name>_mapping` and the mutex `<name>_mutex`, then maps
    // `size` bytes. Throws std::runtime_error, naming the failing step and the system's reason;
    // there is no half-open object.
    GenericSharedMemory(const std::string& name, std::uint32_t size);
    // Unmaps the view, then closes the mapping, then the mutex.
    virtual ~GenericSharedMemory();

    // Waits for the mutex without a timeout. A mutex whose holder died is taken as usual.
    void lock();
    // Waits up to `timeout`; false when another process still holds the mutex then (or on a
    // failure), and the block must not be touched.
    bool lockFor(std::chrono::milliseconds timeout);
    void unlock();

    // The mapped block, readable and writable. Its pages are whole: bytes past the asked size up
    // to the end of the page are usable too.
    void* view() const { return m_view.data(); }

  private:
    NamedMapping m_mapping;
    NamedMutex m_mutex;
    MappedView m_view;
};

}  // namespace ovtx::system::ipc::v2
