#pragma once

#include <utility>

#include "kivo/platform/system/ForkSafeMutex.h"

namespace kivo::platform {

/// A value that any thread may read, replace or modify. The lock is held while `modify` runs its
/// change, and is recursive, so the change may itself read or write the value. A forked child finds
/// the value as its parent left it, possibly half changed if it was forked during a change.
template <typename Value>
class Guarded {
public:
    explicit Guarded(Value value) : value_(std::move(value)) {}

    Value get() const {
        const ForkSafeLock lock(mutex_);
        return value_;
    }

    /// The old value is destroyed outside the lock, since its destructor may run host code.
    void set(Value value) {
        const ForkSafeLock lock(mutex_);
        std::swap(value_, value);
    }

    template <typename Change>
    void modify(const Change& change) {
        const ForkSafeLock lock(mutex_);
        change(value_);
    }

private:
    mutable ForkSafeMutex mutex_;
    Value value_ KIVO_GUARDED_BY(mutex_);
};

}  // namespace kivo::platform
