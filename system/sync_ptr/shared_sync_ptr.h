// Shared and exclusive access to an object that several threads use.
//
// A `SharedSyncAccessor` owns an object and a readers-writer lock. It hands out two kinds of
// pointer: a `SharedSyncPtr` reads the object alongside other shared holders, an
// `ExclusiveSyncPtr` changes it alone. A pointer keeps the lock and the object itself alive for
// as long as it lives, so the accessor may be dropped while a pointer is in use:
//
//   SharedSyncAccessor<SessionMap> sessions(std::make_unique<SessionMap>());
//   {
//       SharedSyncPtr<SessionMap> reading = sessions.shared();     // many at once
//       reading->find(id);
//   }
//   {
//       ExclusiveSyncPtr<SessionMap> writing = sessions.exclusive();   // waits for the readers
//       writing->erase(id);
//   }
//
// The lock is std::shared_mutex: shared holders run together, an exclusive holder waits until
// every shared holder has gone and keeps out everyone else. No holder may take a second pointer
// of the same accessor on the same thread while it holds an exclusive one.
#pragma once

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace ovtx::system::shared_sync_ptr::v0 {

namespace detail {

// The lock and the object of one accessor, shared with every pointer it gave out.
template <typename T>
struct AccessCore {
    virtual ~AccessCore() = default;
    virtual T* object() = 0;
    std::shared_mutex mutex;
};

template <typename T, typename Holder>
struct HolderCore final : AccessCore<T> {
    explicit HolderCore(Holder holderIn) : holder(std::move(holderIn)) {}
    T* object() override {
        if constexpr (std::is_same_v<Holder, T>) {
            return &holder;
        } else {
            return &*holder;
        }
    }
    Holder holder;
};

}  // namespace detail

// Shared (reading) access to a T.
template <typename T>
struct ISharedSyncPtr {
    virtual ~ISharedSyncPtr() = default;
    virtual const T* get() const = 0;
    const T* operator->() const { return get(); }
    const T& operator*() const { return *get(); }
};

// Exclusive (writing) access to a T.
template <typename T>
struct IExclusiveSyncPtr {
    virtual ~IExclusiveSyncPtr() = default;
    virtual T* get() const = 0;
    T* operator->() const { return get(); }
    T& operator*() const { return *get(); }
};

// Keeps the accessor's core alive and its lock taken in shared mode while the pointer lives.
template <typename T>
class SharedSyncPtrHost {
  protected:
    explicit SharedSyncPtrHost(std::shared_ptr<detail::AccessCore<T>> core)
        : m_core(std::move(core)), m_lock(m_core->mutex) {}
    T* object() const { return m_core->object(); }

  private:
    std::shared_ptr<detail::AccessCore<T>> m_core;  // released after the lock
    std::shared_lock<std::shared_mutex> m_lock;
};

// Keeps the accessor's core alive and its lock taken exclusively while the pointer lives.
template <typename T>
class ExclusiveSyncPtrHost {
  protected:
    explicit ExclusiveSyncPtrHost(std::shared_ptr<detail::AccessCore<T>> core)
        : m_core(std::move(core)), m_lock(m_core->mutex) {}
    T* object() const { return m_core->object(); }

  private:
    std::shared_ptr<detail::AccessCore<T>> m_core;  // released after the lock
    std::unique_lock<std::shared_mutex> m_lock;
};

template <typename T>
class SharedSyncPtr final : public ISharedSyncPtr<T>, private SharedSyncPtrHost<T> {
  public:
    explicit SharedSyncPtr(std::shared_ptr<detail::AccessCore<T>> core)
        : SharedSyncPtrHost<T>(std::move(core)) {}
    SharedSyncPtr(SharedSyncPtr&&) noexcept = default;
    SharedSyncPtr& operator=(SharedSyncPtr&&) noexcept = default;
    const T* get() const override { return this->object(); }
};

template <typename T>
class ExclusiveSyncPtr final : public IExclusiveSyncPtr<T>, private ExclusiveSyncPtrHost<T> {
  public:
    explicit ExclusiveSyncPtr(std::shared_ptr<detail::AccessCore<T>> core)
        : ExclusiveSyncPtrHost<T>(std::move(core)) {}
    ExclusiveSyncPtr(ExclusiveSyncPtr&&) noexcept = default;
    ExclusiveSyncPtr& operator=(ExclusiveSyncPtr&&) noexcept = default;
    T* get() const override { return this->object(); }
};

// Owns a T and gives out both kinds of pointer.
template <typename T>
struct ISharedSyncAccessor {
    virtual ~ISharedSyncAccessor() = default;
    // Waits while an exclusive pointer lives.
    virtual SharedSyncPtr<T> shared() const = 0;
    // Waits while any other pointer lives.
    virtual ExclusiveSyncPtr<T> exclusive() const = 0;
};

// Owns the T through `Holder`: a unique_ptr<T> (the default), a shared_ptr<T>, or T itself.
// Copies of an accessor share the object and its lock.
template <typename T, typename Holder = std::unique_ptr<T>>
class SharedSyncAccessor final : public ISharedSyncAccessor<T> {
  public:
    explicit SharedSyncAccessor(Holder holder)
        : m_core(std::make_shared<detail::HolderCore<T, Holder>>(std::move(holder))) {}

    SharedSyncPtr<T> shared() const override { return SharedSyncPtr<T>(m_core); }
    ExclusiveSyncPtr<T> exclusive() const override { return ExclusiveSyncPtr<T>(m_core); }

  private:
    std::shared_ptr<detail::AccessCore<T>> m_core;
};

}  // namespace ovtx::system::shared_sync_ptr::v0
