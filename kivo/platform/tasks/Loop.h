#pragma once

#include <semaphore.h>

#include <atomic>
#include <chrono>
#include <functional>

#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/Timers.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

/// The process's two background threads and the one queue they take their work from. The loop runs
/// everything, turn by turn, and never waits but in libcurl's poll; the helper runs what may block.
/// Any thread may hand work in, and nothing blocks but `waitUntilIdle`. Work that throws is
/// dropped. In a forked child every call does nothing.
class Loop final : public Process::Stoppable {
public:
    using Clock = Timers::Clock;
    using Job = std::function<void()>;

    /// What moves bytes. It gets its share of every turn that has something for it.
    class Wire {
    public:
        /// Moves what is ready, and takes up what has ended. On the loop.
        virtual void perform() = 0;
        /// Cuts off whoever keeps the loop inside `perform`. On the helper.
        virtual void cutOff() noexcept = 0;

        Wire(const Wire&) = delete;
        Wire& operator=(const Wire&) = delete;

    protected:
        Wire() = default;
        ~Wire() = default;
    };

    /// Starts the threads on first use; throws std::system_error when one cannot be started, and
    /// std::bad_alloc when there is no memory or no descriptor to begin with.
    static Loop& shared();

    /// Whether the calling thread is the loop's.
    static bool isCurrent() noexcept;

    /// Has `work` run where its kind belongs, after everything of that kind that was submitted
    /// before. Wakes the loop if it sleeps. Never fails.
    void submit(Work& work) noexcept;
    void submit(Job job, Work::Kind kind = Work::Kind::step);

    /// Waits until no launched task is unfinished, no load runs, and nothing is uncommitted or
    /// unprinted, at most `timeout`, and returns whether that was reached. Starts no threads: where
    /// none were started nothing is under way. The loop does not wait for itself: false there.
    static bool waitUntilIdle(std::chrono::milliseconds timeout) noexcept;

    /// The threads park once queued barriers and commits are done. Takes no lock.
    void stop(Deadline deadline) noexcept override;

    // What follows is for the loop's own thread.

    void schedule(Timer& timer, Clock::time_point deadline) noexcept {
        timers_.add(timer, deadline);
    }
    /// False where the work of `timer` has been taken already.
    bool unschedule(Timer& timer) noexcept { return timers_.remove(timer); }

    /// libcurl's multi handle, in whose poll the loop sleeps.
    void* multi() const noexcept { return multi_; }

    void carry(Wire& wire) noexcept { wire_ = &wire; }

    /// Has the wire perform in this turn still.
    void wireHasWork() noexcept { wireIsDue_ = true; }

    /// One unfinished piece of work that `waitUntilIdle` waits for.
    class Activity {
    public:
        Activity() noexcept { ++shared().activities_; }
        ~Activity() { --shared().activities_; }
        Activity(const Activity&) = delete;
        Activity& operator=(const Activity&) = delete;
    };

private:
    Loop();

    static Loop& begin();
    static void wakeForOutput();

    void run();
    void turn();
    void takeHandedIn();
    void runWorks();
    void take(Work& work) noexcept;
    void perform();
    void sleep();
    int millisecondsToSleep();
    int millisecondsToNextTimer() const;
    void pauseIfFruitless();
    void finish();

    bool mustBeWoken() KIVO_REQUIRES(mutex_);
    void wake() KIVO_EXCLUDES(mutex_);
    void handToHelper(Work& work) noexcept;
    void help();
    Work* awaitHelpWanted() KIVO_EXCLUDES(mutex_);
    Work* takeHelpWanted() KIVO_REQUIRES(mutex_);
    bool hasStuckWhileWaiting(Lock& lock) KIVO_REQUIRES(mutex_);
    void startWatch();
    bool isIdleLocked() const KIVO_REQUIRES(mutex_) { return isIdle_ && helperJobs_ == 0; }

    static inline std::atomic<Loop*> running_{nullptr};

    void* const multi_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> hasHandedIn_{false};
    std::atomic<unsigned> passage_{0};  // Odd while the loop is inside libcurl.
    std::atomic<bool> isWatched_{false};
    sem_t loopHasParked_{};
    sem_t helperHasParked_{};

    // The loop's own.
    WorkQueue queue_;
    WorkQueue held_;       // Until the helper has made what it depends on.
    WorkQueue abandoned_;  // Kept, not freed: at the process end nothing is torn down.
    Timers timers_;
    Wire* wire_ = nullptr;
    bool wireIsDue_ = false;
    bool isHolding_ = false;
    int activities_ = 0;
    int fruitlessTurns_ = 0;

    Mutex mutex_;
    WorkQueue handedIn_ KIVO_GUARDED_BY(mutex_);
    bool isAsleep_ KIVO_GUARDED_BY(mutex_) = false;
    bool isIdle_ KIVO_GUARDED_BY(mutex_) = true;
    Condition idleReached_;
    WorkQueue helpWanted_ KIVO_GUARDED_BY(mutex_);
    int helperJobs_ KIVO_GUARDED_BY(mutex_) = 0;
    int preparations_ KIVO_GUARDED_BY(mutex_) = 0;
    bool loopHasEnded_ KIVO_GUARDED_BY(mutex_) = false;
    Condition helperWoken_;
};

}  // namespace kivo::platform
