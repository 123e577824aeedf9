#include "kivo/platform/Task.h"

#include "kivo/platform/system/CancellationShield.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/TaskPool+Scopes.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

namespace {

/// A coroutine that is never awaited. It is itself the work that the pool runs, and it destroys
/// itself when it ends.
struct Detached {
    struct promise_type final : Work {
        using Handle = std::coroutine_handle<promise_type>;

        Detached get_return_object() noexcept { return {*this}; }
        void run() override { Handle::from_promise(*this).resume(); }
        std::suspend_always initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() noexcept {}
        void unhandled_exception() noexcept {}
    };

    Work& work;
};

/// The parameters live as long as the task: its owner, and the activity that marks it unfinished.
Detached carry([[maybe_unused]] std::shared_ptr<const void> owner,
               [[maybe_unused]] TaskPool::Activity unfinished, Task<void> work) {
    co_await std::move(work);
}

}  // namespace

void launch(std::shared_ptr<const void> owner, Task<void> work) {
    if (!Process::isOwn()) return;
    const CancellationShield uncancelled;
    auto& pool = TaskPool::shared();
    TaskPool::Activity unfinished;
    pool.submitNext(carry(std::move(owner), std::move(unfinished), std::move(work)).work);
}

}  // namespace kivo::platform
