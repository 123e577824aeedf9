#pragma once

#include <functional>

namespace kivo::platform {

/// Starts a detached thread called `name` (at most 15 characters) that runs `body`. It blocks every
/// signal except those that a fault or a profiler raises, so the host's handlers never run on it,
/// and when it is woken it does not preempt the thread that woke it. Throws std::system_error if
/// the thread cannot be started.
void startThread(const char* name, std::function<void()> body);

/// Whether the calling thread was started here.
bool isOwnThread() noexcept;

/// Parks the calling thread until the process ends. It must not return instead: other libraries'
/// thread-exit code would then run concurrently with their exit handlers.
[[noreturn]] void parkThread();

}  // namespace kivo::platform
