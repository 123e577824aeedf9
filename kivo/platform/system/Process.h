#pragma once

#include <chrono>

/// The life of the process as the platform sees it: whether it may act, and what it does once.
namespace kivo::platform::Process {

/// How long the exit hook may delay the process in total.
inline constexpr std::chrono::milliseconds exitPatience{40};

/// Whether this is the process that first used the platform, not a forked child of it. Takes no
/// lock: every entry point calls it before it takes one.
bool isOwn() noexcept;

/// Makes this process the one that uses the platform, unless another one already is; returns
/// whether it is. Every entry point that keeps something calls it first: a forked child would
/// find that without the threads and locks that belong to it. Takes no lock.
bool claim() noexcept;

/// Whether the platform may act: only in its own process, and until that process begins to exit.
/// Takes no lock.
bool isUsable() noexcept;

/// Background threads that must be stopped at exit. The objects form an intrusive list, so
/// registering one needs no memory and cannot fail.
class Stoppable {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Parks the threads at a safe point, or gives up at `deadline`; frees nothing.
    virtual void stop(Deadline deadline) noexcept = 0;

    /// Registers these threads with the exit hook. From then on the object must not be destroyed.
    void stopAtExit() noexcept;

    /// Stops all registered threads, the most recently registered first. For the exit hook.
    static void stopAll(Deadline deadline) noexcept;

    Stoppable() = default;
    virtual ~Stoppable() = default;
    Stoppable(const Stoppable&) = delete;
    Stoppable& operator=(const Stoppable&) = delete;

private:
    Stoppable* registeredBefore_ = nullptr;
};

/// Prepares the process once, on the first caller's thread and before any of Kivo's threads exists:
/// reads the environment, initialises libcurl, registers the exit hook and pins the library in
/// memory. Throws std::bad_alloc if memory runs out; a later call tries again. Does nothing in a
/// forked child.
void prepare();

}  // namespace kivo::platform::Process
