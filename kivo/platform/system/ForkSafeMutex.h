#pragma once

#include <mutex>

#include "kivo/platform/base/Mutex.h"

namespace kivo::platform {

/// A recursive mutex that does nothing in a forked child, which may have inherited it locked for
/// good.
class KIVO_THREAD_SAFETY(capability("mutex")) ForkSafeMutex {
public:
    void lock() KIVO_THREAD_SAFETY(acquire_capability());
    void unlock() KIVO_THREAD_SAFETY(release_capability());

private:
    std::recursive_mutex mutex_;
};

/// Holds a `ForkSafeMutex`.
class KIVO_THREAD_SAFETY(scoped_lockable) ForkSafeLock {
public:
    explicit ForkSafeLock(ForkSafeMutex& mutex) KIVO_THREAD_SAFETY(acquire_capability(mutex))
        : mutex_(mutex) {
        mutex_.lock();
    }
    ~ForkSafeLock() KIVO_THREAD_SAFETY(release_capability()) { mutex_.unlock(); }
    ForkSafeLock(const ForkSafeLock&) = delete;
    ForkSafeLock& operator=(const ForkSafeLock&) = delete;

private:
    ForkSafeMutex& mutex_;
};

}  // namespace kivo::platform
