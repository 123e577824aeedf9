#pragma once

#include <atomic>
#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "kivo/platform/Export.h"
#include "kivo/platform/HostFlags.h"

namespace kivo::platform {

template <typename T>
class Task;

namespace detail {

/// Common to every task's promise: the task starts when it is awaited, and its one waiter resumes
/// when it ends. If the task ends before the waiter has suspended, the waiter continues without
/// being resumed, so a loop of such awaits does not grow the stack; compilers do not guarantee that
/// for symmetric transfer.
class TaskPromiseBase {
public:
    std::suspend_always initial_suspend() noexcept { return {}; }
    auto final_suspend() noexcept { return ResumeWaiter{}; }

    void setWaiter(std::coroutine_handle<> waiter) noexcept { waiter_ = waiter; }

    /// Called by the waiter once it has suspended and by the task once it has ended. Returns true
    /// to the second caller, which then resumes the waiter.
    bool isSecondToArrive() noexcept { return arrived_.exchange(true, std::memory_order_acq_rel); }

private:
    struct ResumeWaiter {
        bool await_ready() noexcept { return false; }
        template <typename Promise>
        void await_suspend(std::coroutine_handle<Promise> ended) noexcept {
            TaskPromiseBase& promise = ended.promise();
            if (promise.isSecondToArrive()) promise.waiter_.resume();
        }
        void await_resume() noexcept {}
    };

    std::coroutine_handle<> waiter_;
    std::atomic<bool> arrived_{false};
};

/// The exception that is being handled, to be kept.
KIVO_EXPORT std::exception_ptr caughtError() noexcept;

template <typename T>
class TaskPromise : public TaskPromiseBase {
public:
    Task<T> get_return_object() noexcept;
    void return_value(T value) { value_.emplace(std::move(value)); }
    void unhandled_exception() noexcept { error_ = caughtError(); }

    T result() {
        if (error_) std::rethrow_exception(error_);
        return *std::move(value_);
    }

private:
    std::optional<T> value_;
    std::exception_ptr error_;
};

template <>
class TaskPromise<void> : public TaskPromiseBase {
public:
    Task<void> get_return_object() noexcept;
    void return_void() noexcept {}
    void unhandled_exception() noexcept { error_ = caughtError(); }

    void result() {
        if (error_) std::rethrow_exception(error_);
    }

private:
    std::exception_ptr error_;
};

}  // namespace detail

/// An asynchronous operation that returns a `T` or throws. It is lazy: it starts when it is
/// awaited, which may happen once, or launched. It runs on the thread that resumes it, which is the
/// loop after every suspension. Destroying a task that has not started drops the operation.
template <typename T = void>
class [[nodiscard]] Task {
public:
    using promise_type = detail::TaskPromise<T>;

    Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Task& operator=(Task&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Task() {
        if (handle_) handle_.destroy();
    }

    auto operator co_await() && noexcept { return Awaiter{handle_}; }

private:
    friend promise_type;
    using Handle = std::coroutine_handle<promise_type>;

    struct Awaiter {
        Handle awaited;

        bool await_ready() noexcept { return false; }
        bool await_suspend(std::coroutine_handle<> waiter) {
            awaited.promise().setWaiter(waiter);
            awaited.resume();
            return !awaited.promise().isSecondToArrive();
        }
        T await_resume() { return awaited.promise().result(); }
    };

    explicit Task(Handle handle) noexcept : handle_(handle) {}

    Handle handle_;
};

template <typename T>
Task<T> detail::TaskPromise<T>::get_return_object() noexcept {
    return Task<T>(std::coroutine_handle<TaskPromise>::from_promise(*this));
}

inline Task<void> detail::TaskPromise<void>::get_return_object() noexcept {
    return Task<void>(std::coroutine_handle<TaskPromise>::from_promise(*this));
}

/// Starts `task` on the loop and keeps `owner` alive until the task has ended. Nobody gets
/// its result, and an exception that leaves it is dropped. Throws std::bad_alloc or
/// std::system_error if memory or threads run out; the task has then not started. Does nothing in a
/// forked child.
KIVO_EXPORT void launch(std::shared_ptr<const void> owner, Task<void> task);

}  // namespace kivo::platform
