#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

namespace kivo::platform {

/// Something to be run once. Queued work forms an intrusive list, so queueing needs no memory and
/// cannot fail. It owns itself and must not be touched after `run()`.
class Work {
public:
    /// A `step` runs on the loop when its turn comes. A `task` and a `barrier` also wait for the
    /// preparations that were queued before them. A `preparation` and a `commit` run on the helper.
    /// When the process ends, queued barriers and commits are still run.
    enum class Kind : std::uint8_t { step, task, barrier, preparation, commit };

    virtual void run() = 0;

    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    const Kind kind;

protected:
    explicit Work(Kind treated = Kind::step) noexcept : kind(treated) {}
    ~Work() = default;

private:
    friend class WorkQueue;

    Work* behind_ = nullptr;
};

/// First in, first out. It owns nothing; its owner guards it.
class WorkQueue {
public:
    bool isEmpty() const noexcept { return first_ == nullptr; }

    void push(Work& work) noexcept {
        work.behind_ = nullptr;
        (first_ == nullptr ? first_ : last_->behind_) = &work;
        last_ = &work;
    }

    /// The queue must not be empty.
    Work& pop() noexcept { return *std::exchange(first_, first_->behind_); }

    /// Moves all of `others` to the end.
    void append(WorkQueue& others) noexcept {
        if (others.isEmpty()) return;
        (first_ == nullptr ? first_ : last_->behind_) = others.first_;
        last_ = others.last_;
        others.first_ = nullptr;
    }

    /// Moves all of `others` to the front.
    void prepend(WorkQueue& others) noexcept {
        others.append(*this);
        std::swap(*this, others);
    }

private:
    Work* first_ = nullptr;
    Work* last_ = nullptr;
};

/// `function` as work that frees itself once it has run.
inline Work& makeWork(std::function<void()> function, Work::Kind kind = Work::Kind::step) {
    class Function final : public Work {
    public:
        Function(std::function<void()> function, Kind treated)
            : Work(treated), function_(std::move(function)) {}
        void run() override {
            const std::unique_ptr<Function> self(this);
            function_();
        }

    private:
        const std::function<void()> function_;
    };
    return *new Function(std::move(function), kind);
}

/// A member function of `Owner` as work that is itself a member: running it later cannot fail.
template <typename Owner>
class Step final : public Work {
public:
    explicit Step(void (Owner::*operation)()) : operation_(operation) {}

    /// Keeps `owner` alive until it has run, or until it is dropped.
    Work& of(std::shared_ptr<Owner> owner) noexcept {
        owner_ = std::move(owner);
        return *this;
    }

    /// Lets the owner go, for a step that will not be run.
    void drop() noexcept { owner_.reset(); }

    void run() override {
        const auto owner = std::exchange(owner_, nullptr);
        (owner.get()->*operation_)();
    }

private:
    void (Owner::*operation_)();
    std::shared_ptr<Owner> owner_;
};

}  // namespace kivo::platform
