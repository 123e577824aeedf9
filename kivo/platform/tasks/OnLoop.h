#pragma once

#include <coroutine>

#include "kivo/platform/tasks/Loop.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

/// Awaited, it continues the operation on the loop like a newly launched task: after the
/// preparations and the writes that were queued before.
class [[nodiscard]] OnLoop final : public Work {
public:
    OnLoop() : Work(Kind::task), loop_(Loop::shared()) {}

    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> suspended) noexcept {
        suspended_ = suspended;
        loop_.submit(*this);
    }
    void await_resume() const noexcept {}

    void run() override { suspended_.resume(); }

private:
    Loop& loop_;
    std::coroutine_handle<> suspended_;
};

}  // namespace kivo::platform
