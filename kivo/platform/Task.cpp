#include "kivo/platform/Task.h"

#include "kivo/platform/Process.h"
#include "kivo/platform/TaskPool+Scopes.h"

namespace kivo::platform {

namespace {

/// A coroutine that nobody awaits: it destroys itself when it ends.
struct Detached {
    struct promise_type {
        Detached get_return_object() noexcept {
            return {std::coroutine_handle<promise_type>::from_promise(*this)};
        }
        std::suspend_always initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() noexcept {}
        void unhandled_exception() noexcept {}
    };

    std::coroutine_handle<> handle;
};

/// The parameters live as long as the work: the owner, and the mark that it is unfinished.
Detached carry([[maybe_unused]] std::shared_ptr<const void> owner,
               [[maybe_unused]] TaskPool::Activity unfinished, Task<void> work) {
    co_await std::move(work);
}

}  // namespace

void launch(std::shared_ptr<const void> owner, Task<void> work) {
    if (!Process::isOwn()) return;
    TaskPool::Activity unfinished;
    const Detached detached = carry(std::move(owner), std::move(unfinished), std::move(work));
    try {
        TaskPool::shared().submitNext([handle = detached.handle] { handle.resume(); });
    } catch (...) {
        detached.handle.destroy();
        throw;
    }
}

}  // namespace kivo::platform
