#pragma once

#include <atomic>
#include <coroutine>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "kivo/platform/base/Error.h"
#include "kivo/platform/base/Result.h"
#include "kivo/platform/system/FatalError.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/Loop.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

/// The right to resume a suspended operation exactly once, on any thread. Copies share it. The
/// operation continues on the loop. Resuming twice is a programming error and stops the process. An
/// operation that is never resumed stays suspended forever, and standard error says so, under the
/// label that the continuation was created with.
template <typename T>
class CheckedContinuation {
public:
    CheckedContinuation(const char* label, std::coroutine_handle<> suspended,
                        std::optional<Result<T>>& slot)
        : shared_(std::make_shared<Shared>(label, suspended, slot)) {}

    void resume(Result<T> outcome) const {
        auto& loop = Loop::shared();
        if (shared_->resumed.exchange(true))
            fatalError(std::string(shared_->label) +
                       " tried to resume its continuation more than once");
        shared_->slot = std::move(outcome);
        loop.submit(shared_->resumption.of(shared_));
    }

private:
    struct Shared {
        Shared(const char* name, std::coroutine_handle<> handle, std::optional<Result<T>>& result)
            : label(name), suspended(handle), slot(result) {}
        ~Shared() {
            if (!resumed && Process::isUsable())
                std::fprintf(stderr, "%s leaked its continuation\n", label);
        }

        void goOn() { suspended.resume(); }

        const char* label;
        std::coroutine_handle<> suspended;
        // Part of the suspended operation: it must not be touched once that resumes.
        std::optional<Result<T>>& slot;
        std::atomic<bool> resumed{false};
        Step<Shared> resumption{&Shared::goOn};
    };

    std::shared_ptr<Shared> shared_;
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

    T await_resume() { return get(std::move(*outcome_)); }

private:
    const char* label_;
    Start start_;
    std::optional<Result<T>> outcome_;
};

template <typename T, typename Start>
auto withCheckedThrowingContinuation(const char* label, Start start) {
    return ContinuationAwaiter<T, Start>(label, std::move(start));
}

}  // namespace kivo::platform
