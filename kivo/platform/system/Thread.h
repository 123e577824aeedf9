#pragma once

#include <functional>

namespace kivo::platform {

/// Starts a detached thread under `name` (15 characters at most). It blocks every signal but those
/// that a fault or a profiler raises, so that the host's handlers never run on it, and it waits for
/// its turn when it is woken, rather than preempt whoever woke it. Throws std::system_error when
/// the thread cannot be had.
void startThread(const char* name, std::function<void()> body);

/// Whether the calling thread was started here.
bool isOwnThread() noexcept;

/// Where a thread waits for the end of the process. It must not return instead: what other
/// libraries do when a thread ends would run beside their own exit handlers.
[[noreturn]] void parkThread();

}  // namespace kivo::platform
