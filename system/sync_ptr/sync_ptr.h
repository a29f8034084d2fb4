// Synchronised pointers: a pointer coupled with the lock that guards what it points at.
//
// Data that several threads reach is never handed out bare. A `sync_ptr` holds a handle on the
// data (usually a pointer) and the critical section that guards it; every access through `->`
// takes the section for the length of one expression, so closures of the variable tree can read
// shared state safely:
//
//   CriticalSection section;                       // guards `engine`
//   auto guarded = make_sync_ptr(&engine, section);
//   auto getFormat = [guarded] { return guarded->detectedFormat; };   // locked while reading
//
//   {
//       std::unique_ptr<ILock> lock = CreateLock(guarded);            // longer, explicit hold
//       ...
//   }
//
// A critical section may be entered again by the thread that holds it, as on the original
// platform, so a closure may call another guarded closure of the same data.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

namespace ovtx::system::sync_ptr::v1 {

// An abstract lock: held from construction to destruction.
struct ILock {
    virtual ~ILock() = default;
};

// A lock that the thread holding it may enter again.
class CriticalSection {
  public:
    void enter() { m_mutex.lock(); }
    bool tryEnter() { return m_mutex.try_lock(); }
    void leave() { m_mutex.unlock(); }

  private:
    std::recursive_mutex m_mutex;
};

inline void EnterCriticalSection(CriticalSection* section) {
    section->enter();
}
inline void LeaveCriticalSection(CriticalSection* section) {
    section->leave();
}

// A value (a pointer, as a rule) and the lock that guards what it reaches.
template <typename T>
class sync_ptr {
  public:
    using LockFactory = std::function<std::unique_ptr<ILock>()>;

    // One access: the lock is held while this object lives, which for `ptr->member` is the
    // length of the full expression.
    class Access {
      public:
        Access(std::unique_ptr<ILock> lock, const T* value) : m_lock(std::move(lock)), m_value(value) {}
        decltype(auto) operator->() const {
            if constexpr (std::is_pointer_v<T> || requires(const T& handle) { handle.operator->(); }) {
                return *m_value;
            } else {
                return m_value;
            }
        }
        decltype(auto) operator*() const {
            if constexpr (std::is_pointer_v<T> || requires(const T& handle) { *handle; }) {
                return **m_value;
            } else {
                return *m_value;
            }
        }

      private:
        std::unique_ptr<ILock> m_lock;
        const T* m_value;
    };

    sync_ptr(T value, LockFactory lock) : m_value(std::move(value)), m_lock(std::move(lock)) {}

    Access operator->() const { return Access(m_lock(), &m_value); }
    // Holds the lock for as long as the returned access lives.
    Access access() const { return Access(m_lock(), &m_value); }
    std::unique_ptr<ILock> lock() const { return m_lock(); }

  private:
    T m_value;
    LockFactory m_lock;
};

// Couples a value with the critical section that guards it. The section must outlive every copy.
template <typename T>
sync_ptr<T> make_sync_ptr(T value, CriticalSection& criticalSection) {
    class LockImpl : public ILock {
      public:
        explicit LockImpl(CriticalSection* section) : m_section(section) {
            if (m_section != nullptr) {
                EnterCriticalSection(m_section);
            }
        }
        ~LockImpl() override {
            if (m_section != nullptr) {
                LeaveCriticalSection(m_section);
            }
        }
        LockImpl(const LockImpl&) = delete;
        LockImpl& operator=(const LockImpl&) = delete;

      private:
        CriticalSection* m_section;
    };
    CriticalSection* section = &criticalSection;
    return sync_ptr<T>(std::move(value), [section] { return std::make_unique<LockImpl>(section); });
}

// Takes the lock of a synchronised pointer until the returned lock is dropped.
template <typename T>
std::unique_ptr<ILock> CreateLock(const sync_ptr<T>& pointer) {
    return pointer.lock();
}

}  // namespace ovtx::system::sync_ptr::v1
