#pragma once

#include <mutex>
#include <utility>

namespace kivo::platform {

/// A value that any thread may read, replace or modify. The lock is held while `modify` runs its
/// change, and is recursive, so the change may itself read or write the value.
template <typename Value>
class Guarded {
public:
    explicit Guarded(Value value) : value_(std::move(value)) {}

    Value get() const {
        const std::lock_guard lock(mutex_);
        return value_;
    }

    /// The old value ends outside the lock: its destructor may be a caller's code.
    void set(Value value) {
        const std::lock_guard lock(mutex_);
        std::swap(value_, value);
    }

    template <typename Change>
    void modify(const Change& change) {
        const std::lock_guard lock(mutex_);
        change(value_);
    }

private:
    mutable std::recursive_mutex mutex_;
    Value value_;
};

}  // namespace kivo::platform
