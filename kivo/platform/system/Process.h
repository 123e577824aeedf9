#pragma once

#include <chrono>

/// The life of the process as the platform sees it: where it may act, and what it must do once.
namespace kivo::platform::Process {

/// How long the exit hook may hold the process up, all its steps together.
inline constexpr std::chrono::milliseconds exitPatience{40};

/// Whether this is the process that first used the platform, and not a forked child of it.
/// Takes no lock, so every entry asks it before it takes one.
bool isOwn() noexcept;

/// Whether the platform may act: in its own process, until that process begins to end. Takes no
/// lock.
bool isUsable() noexcept;

/// Background threads that end with the process. They are chained through themselves, so
/// registering them takes no memory and cannot fail.
class Stoppable {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Parks the threads at a safe point, or gives up at `deadline`; frees nothing.
    virtual void stop(Deadline deadline) noexcept = 0;

    /// Has the exit hook stop these threads, which must never be destroyed.
    void stopAtExit() noexcept;

    /// Stops all that were registered, those registered last first. For the exit hook.
    static void stopAll(Deadline deadline) noexcept;

    Stoppable(const Stoppable&) = delete;
    Stoppable& operator=(const Stoppable&) = delete;

protected:
    Stoppable() = default;
    ~Stoppable() = default;

private:
    Stoppable* registeredBefore_ = nullptr;
};

/// Prepares the process, once, on the first caller's thread and before any thread of ours exists:
/// reads the environment, starts libcurl, registers the exit hook and pins the library in memory.
void prepare();

}  // namespace kivo::platform::Process
