#include "kivo/platform/Task.h"

#include "kivo/platform/base/Error.h"
#include "kivo/platform/system/CancellationShield.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/Loop.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

namespace {

/// A coroutine that is never awaited. It is itself the work that the loop runs, and it destroys
/// itself when it ends.
struct Detached {
    struct promise_type final : Work {
        using Handle = std::coroutine_handle<promise_type>;

        promise_type() noexcept : Work(Kind::task) {}
        Detached get_return_object() noexcept { return {*this}; }
        void run() override { Handle::from_promise(*this).resume(); }
        std::suspend_always initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() noexcept {}
        void unhandled_exception() noexcept {}
    };

    Work& work;
};

/// The owner, a parameter, lives until the coroutine ends.
Detached carry([[maybe_unused]] std::shared_ptr<const void> owner, Task<void> work) {
    const Loop::Activity unfinished;
    co_await std::move(work);
}

}  // namespace

std::exception_ptr detail::caughtError() noexcept { return currentError(); }

void launch(std::shared_ptr<const void> owner, Task<void> work) {
    if (!Process::isOwn()) return;
    const CancellationShield uncancelled;
    auto& loop = Loop::shared();
    loop.submit(carry(std::move(owner), std::move(work)).work);
}

}  // namespace kivo::platform
