#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Which mutex guards what, checked by clang's -Wthread-safety; other compilers ignore it. Clang
// does not look into catch blocks: move code that takes a lock there into a function.
#if defined(__clang__)
#define KIVO_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define KIVO_THREAD_SAFETY(attribute)
#endif

/// The member may be accessed only while `mutex` is held.
#define KIVO_GUARDED_BY(mutex) KIVO_THREAD_SAFETY(guarded_by(mutex))
/// The function may be called only while `mutex` is held.
#define KIVO_REQUIRES(mutex) KIVO_THREAD_SAFETY(requires_capability(mutex))
/// The function must not be called while `mutex` is held: it locks it itself.
#define KIVO_EXCLUDES(mutex) KIVO_THREAD_SAFETY(locks_excluded(mutex))

namespace kivo::platform {

/// A std::mutex whose use the compiler can check.
class KIVO_THREAD_SAFETY(capability("mutex")) Mutex {
public:
    void lock() KIVO_THREAD_SAFETY(acquire_capability()) { mutex_.lock(); }
    void unlock() KIVO_THREAD_SAFETY(release_capability()) { mutex_.unlock(); }

private:
    friend class Lock;

    std::mutex mutex_;
};

/// Holds a mutex for its lifetime, except between `unlock` and `lock`.
class KIVO_THREAD_SAFETY(scoped_lockable) Lock {
public:
    explicit Lock(Mutex& mutex) KIVO_THREAD_SAFETY(acquire_capability(mutex))
        : lock_(mutex.mutex_) {}
    ~Lock() KIVO_THREAD_SAFETY(release_capability()) = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void lock() KIVO_THREAD_SAFETY(acquire_capability()) { lock_.lock(); }
    void unlock() KIVO_THREAD_SAFETY(release_capability()) { lock_.unlock(); }

private:
    friend class Condition;

    std::unique_lock<std::mutex> lock_;
};

/// A std::condition_variable that waits with a `Lock`. Callers loop over the condition themselves,
/// so that the compiler sees it read under the lock.
class Condition {
public:
    void wait(Lock& lock) { condition_.wait(lock.lock_); }

    /// False once `deadline` has passed.
    template <typename Clock, typename Duration>
    bool waitUntil(Lock& lock, const std::chrono::time_point<Clock, Duration>& deadline) {
        return condition_.wait_until(lock.lock_, deadline) == std::cv_status::no_timeout;
    }

    void notifyOne() noexcept { condition_.notify_one(); }
    void notifyAll() noexcept { condition_.notify_all(); }

private:
    std::condition_variable condition_;
};

}  // namespace kivo::platform
