#pragma once

#include <chrono>
#include <functional>

namespace kivo::platform {

class Work;

/// The process's background threads, two, started on first use, and the one queue they take their
/// work from. Any thread may call, and nothing blocks but `waitUntilIdle`. A job that throws is
/// dropped. In a forked child every call does nothing.
class TaskPool {
public:
    using Job = std::function<void()>;

    /// Starts the threads on first use; throws std::system_error when not even one can be had, and
    /// std::bad_alloc when there is no memory to begin with.
    static TaskPool& shared();

    /// Runs `job` on a pool thread, after every barrier submitted before it.
    void submit(Job job);

    /// Like `submit`, for work that carries on where the calling one is about to end: a pool
    /// thread takes it up itself, next, rather than wake the other one for it. Never fails.
    void submitNext(Work& work) noexcept;

    /// Runs `job` after every barrier submitted before it, and holds back what is submitted after
    /// it until it has returned. Keep it short. It still runs when the process is about to end.
    void submitBarrier(Job job);

    /// Like `submit`, for work that makes state durable: it still runs when the process is about to
    /// end.
    void submitCommit(Job job);

    /// Waits until no launched task is unfinished, no load runs and no commit is due, at most
    /// `timeout`, and returns whether that was reached. Starts no threads: where none were started
    /// nothing is under way. On a pool thread it would wait for itself.
    static bool waitUntilIdle(std::chrono::milliseconds timeout) noexcept;

    /// Whether the calling thread belongs to the pool.
    static bool isPoolThread() noexcept;

    /// While one is alive, what its thread submits gathers, and is handed over together at the end
    /// of the outermost: one lock, one thread woken.
    class Handover;

    /// One unfinished piece of work that `waitUntilIdle` waits for.
    class Activity;

private:
    class State;

    TaskPool();

    State& state_;
};

}  // namespace kivo::platform
