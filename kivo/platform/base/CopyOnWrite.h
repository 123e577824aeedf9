#pragma once

#include <atomic>
#include <utility>

namespace kivo::platform {

/// A value whose copies share its storage until one of them changes, so that copying is cheap. It
/// behaves like any other value: copies may be used on different threads. A moved-from object can
/// only be destroyed or assigned to.
template <typename Value>
class CopyOnWrite {
public:
    explicit CopyOnWrite(Value value) : shared_(new Shared{std::move(value)}) {}
    CopyOnWrite(const CopyOnWrite& other) noexcept : shared_(other.shared_) { ++shared_->owners; }
    CopyOnWrite(CopyOnWrite&& other) noexcept : shared_(std::exchange(other.shared_, nullptr)) {}
    CopyOnWrite& operator=(CopyOnWrite other) noexcept {
        std::swap(shared_, other.shared_);
        return *this;
    }
    ~CopyOnWrite() {
        if (shared_ != nullptr && --shared_->owners == 0) delete shared_;
    }

    const Value* operator->() const { return &shared_->value; }

    /// The value, no longer shared, for the caller to change.
    Value& own() {
        if (shared_->owners != 1) *this = CopyOnWrite(shared_->value);
        return shared_->value;
    }

private:
    struct Shared {
        Value value;
        std::atomic<int> owners{1};
    };

    Shared* shared_;
};

}  // namespace kivo::platform
