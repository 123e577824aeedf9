#pragma once

#include <coroutine>

#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/Loop.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

/// Awaited, it continues the operation on the loop like a newly launched task: after the
/// preparations and the writes that were queued before. In a forked child, or once the process
/// ends, the operation is dropped.
class [[nodiscard]] OnLoop final : public Work {
public:
    OnLoop() : Work(Kind::task) {}

    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> suspended) {
        suspended_ = suspended;
        if (Process::isUsable()) Loop::shared().submit(*this);
    }
    void await_resume() const noexcept {}

    void run() override { suspended_.resume(); }

private:
    std::coroutine_handle<> suspended_;
};

}  // namespace kivo::platform
