#pragma once

#include <chrono>
#include <functional>

namespace kivo::platform {

class Work;

/// The process's two background threads, started on first use, and the one queue from which they
/// take their work. Any thread may call; only `waitUntilIdle` blocks. An exception that leaves a
/// job is dropped. In a forked child every call does nothing.
class TaskPool {
public:
    using Job = std::function<void()>;

    /// Starts the threads on first use. Throws std::system_error if not even one can be started,
    /// and std::bad_alloc if memory runs out.
    static TaskPool& shared();

    /// Runs `job` on a pool thread, after every barrier submitted before it.
    void submit(Job job);

    /// Like `submit`, for work that continues what the calling job is about to finish: a pool
    /// thread runs it next, itself, instead of waking the other thread for it. Never fails.
    void submitNext(Work& work) noexcept;

    /// Runs `job` after every barrier submitted before it; whatever is submitted later waits until
    /// it has returned. Keep it short. It still runs while the process exits.
    void submitBarrier(Job job);

    /// Like `submit`, for work that makes state durable: it still runs while the process exits.
    void submitCommit(Job job);

    /// Waits until no launched task is unfinished, no load runs and no commit is due, at most
    /// `timeout`, and returns whether that was reached. Starts no threads: where none were started
    /// nothing is under way. On a pool thread it would wait for itself.
    static bool waitUntilIdle(std::chrono::milliseconds timeout) noexcept;

    /// Whether the calling thread belongs to the pool.
    static bool isPoolThread() noexcept;

    /// While one exists, the submissions of its thread are gathered; the outermost one hands them
    /// over together when it ends, so that one lock is taken and one thread is woken.
    class Handover;

    /// One unfinished piece of work that `waitUntilIdle` waits for.
    class Activity;

private:
    class State;

    TaskPool();

    State& state_;
};

}  // namespace kivo::platform
