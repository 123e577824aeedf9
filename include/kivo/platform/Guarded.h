#pragma once

#include <mutex>
#include <utility>

#include "kivo/platform/Export.h"

namespace kivo::platform {

/// Locks `mutex`, but not in a forked child, which may have inherited it locked for good.
KIVO_EXPORT std::unique_lock<std::recursive_mutex> lockUnlessForked(std::recursive_mutex& mutex);

/// A value that any thread may read, replace or modify. The lock is held while `modify` runs its
/// change, and is recursive, so the change may itself read or write the value. A forked child finds
/// the value as its parent left it, half changed perhaps if it was forked during a change.
template <typename Value>
class Guarded {
public:
    explicit Guarded(Value value) : value_(std::move(value)) {}

    Value get() const {
        const auto lock = lockUnlessForked(mutex_);
        return value_;
    }

    /// The old value ends outside the lock: its destructor may be a caller's code.
    void set(Value value) {
        const auto lock = lockUnlessForked(mutex_);
        std::swap(value_, value);
    }

    template <typename Change>
    void modify(const Change& change) {
        const auto lock = lockUnlessForked(mutex_);
        change(value_);
    }

private:
    mutable std::recursive_mutex mutex_;
    Value value_;
};

}  // namespace kivo::platform
