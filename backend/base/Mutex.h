#pragma once

#include <mutex>

// What a mutex guards: checked by clang's -Wthread-safety, ignored by other compilers.
#if defined(__clang__)
#define KIVO_BACKEND_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define KIVO_BACKEND_THREAD_SAFETY(attribute)
#endif

/// The member may be accessed only while `mutex` is held.
#define KIVO_BACKEND_GUARDED_BY(mutex) KIVO_BACKEND_THREAD_SAFETY(guarded_by(mutex))
/// The function may be called only while `mutex` is held.
#define KIVO_BACKEND_REQUIRES(mutex) KIVO_BACKEND_THREAD_SAFETY(requires_capability(mutex))

namespace kivo::backend {

/// A std::mutex whose use the compiler can check.
class KIVO_BACKEND_THREAD_SAFETY(capability("mutex")) Mutex {
public:
    void lock() KIVO_BACKEND_THREAD_SAFETY(acquire_capability()) { mutex_.lock(); }
    void unlock() KIVO_BACKEND_THREAD_SAFETY(release_capability()) { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

/// Holds a mutex for the length of a scope.
class KIVO_BACKEND_THREAD_SAFETY(scoped_lockable) Lock {
public:
    explicit Lock(Mutex& mutex) KIVO_BACKEND_THREAD_SAFETY(acquire_capability(mutex))
        : mutex_(mutex) {
        mutex_.lock();
    }
    ~Lock() KIVO_BACKEND_THREAD_SAFETY(release_capability()) { mutex_.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    Mutex& mutex_;
};

}  // namespace kivo::backend
