#pragma once

#include <atomic>
#include <coroutine>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "kivo/platform/base/Error.h"
#include "kivo/platform/base/Result.h"
#include "kivo/platform/system/FatalError.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/Loop.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

/// An operation that waits for its continuation, whatever the outcome's type.
class SuspendedOperation : public std::enable_shared_from_this<SuspendedOperation> {
public:
    SuspendedOperation(const char* label, std::coroutine_handle<> handle)
        : label_(label), handle_(handle) {}
    ~SuspendedOperation() {
        if (!resumed_ && Process::isUsable())
            std::fprintf(stderr, "%s leaked its continuation\n", label_);
    }
    SuspendedOperation(const SuspendedOperation&) = delete;
    SuspendedOperation& operator=(const SuspendedOperation&) = delete;

    /// Stops the process at the second call.
    void claim() {
        if (resumed_.exchange(true))
            fatalError(std::string(label_) + " tried to resume its continuation more than once");
    }

    void resumeOn(Loop& loop) { loop.submit(resumption_.of(shared_from_this())); }

private:
    void goOn() { handle_.resume(); }

    const char* const label_;
    const std::coroutine_handle<> handle_;
    std::atomic<bool> resumed_{false};
    Step<SuspendedOperation> resumption_{&SuspendedOperation::goOn};
};

/// The right to resume a suspended operation exactly once, on any thread. Copies share it. The
/// operation continues on the loop. Resuming twice is a programming error and stops the process. An
/// operation that is never resumed stays suspended forever, and standard error says so, under the
/// label that the continuation was created with.
template <typename T>
class CheckedContinuation {
public:
    CheckedContinuation(const char* label, std::coroutine_handle<> suspended, Result<T>& slot)
        : operation_(std::make_shared<SuspendedOperation>(label, suspended)), slot_(&slot) {}

    void resume(Result<T> outcome) const {
        auto& loop = Loop::shared();
        operation_->claim();
        *slot_ = std::move(outcome);
        operation_->resumeOn(loop);
    }

private:
    std::shared_ptr<SuspendedOperation> operation_;
    // Part of the suspended operation: it must not be touched once that resumes.
    Result<T>* slot_;
};

/// Suspends the awaiting operation and calls `start` with the continuation that will resume it.
/// `start` may resume it before it returns; an error that it throws resumes the operation with that
/// error.
template <typename T, typename Start>
class [[nodiscard]] ContinuationAwaiter {
public:
    ContinuationAwaiter(const char* label, Start start) : label_(label), start_(std::move(start)) {}

    bool await_ready() const noexcept { return false; }

    void await_suspend(std::coroutine_handle<> suspended) {
        // The operation, and this awaiter with it, may end while it runs.
        Start start = std::move(start_);
        const CheckedContinuation<T> continuation(label_, suspended, outcome_);
        try {
            start(continuation);
        } catch (...) {
            continuation.resume(currentError());
        }
    }

    T await_resume() { return get(std::move(outcome_)); }

private:
    const char* label_;
    Start start_;
    Result<T> outcome_;
};

template <typename T, typename Start>
auto withCheckedThrowingContinuation(const char* label, Start start) {
    return ContinuationAwaiter<T, Start>(label, std::move(start));
}

}  // namespace kivo::platform
