#pragma once

#include <semaphore.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>

#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/Timers.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

/// The process's two background threads and the queue that feeds them. The loop runs everything,
/// turn by turn, and sleeps in libcurl's poll, or on a semaphore while the network has nothing to
/// wait for; the helper runs what may block. Any thread may
/// submit work; only `waitUntilIdle` blocks. What work throws is dropped. In a forked child every
/// call does nothing.
class Loop final : public Process::Stoppable {
public:
    using Clock = Timers::Clock;
    using Job = std::function<void()>;

    /// The network, which has its share of every turn in which there is something for it to do.
    class Wire {
    public:
        /// Moves the bytes that are ready and takes up what has ended. Called on the loop.
        virtual void perform() = 0;
        /// Whether it waits for descriptors or time limits of its own.
        virtual bool isActive() const noexcept = 0;
        /// Cuts off the peer that keeps the loop inside `perform`. Called on the helper.
        virtual void cutOff() noexcept = 0;

        Wire(const Wire&) = delete;
        Wire& operator=(const Wire&) = delete;

    protected:
        Wire() = default;
        ~Wire() = default;
    };

    /// Starts the threads on first use. Throws std::system_error if one cannot be started, and
    /// std::bad_alloc if memory or descriptors run out; a later call tries again.
    static Loop& shared();

    /// Whether the calling thread is the loop's.
    static bool isCurrent() noexcept;

    /// Runs `work` on the thread that its kind belongs to, after all work of that kind that was
    /// submitted before. Wakes the loop if it sleeps. Cannot fail.
    void submit(Work& work) noexcept;
    void submit(Job job, Work::Kind kind = Work::Kind::step);

    /// Waits until no launched task is unfinished, no load runs, and nothing is uncommitted or
    /// unprinted, for at most `timeout`; returns whether that was reached. True if the threads have
    /// not been started; false on the loop, which cannot wait for itself.
    static bool waitUntilIdle(std::chrono::milliseconds timeout) noexcept;

    /// Has the threads park once the queued barriers and commits are done. Takes no lock.
    void stop(Deadline deadline) noexcept override;

    // The rest is for the loop's own thread.

    void schedule(Timer& timer, Clock::time_point deadline) noexcept {
        timers_.add(timer, deadline);
    }
    /// Returns false if the work of `timer` is queued already.
    bool unschedule(Timer& timer) noexcept { return timers_.remove(timer); }

    /// Counts how often work of other threads was taken in. What was learned since the latest
    /// intake is younger than all work that runs.
    unsigned intake() const noexcept { return intake_; }

    /// libcurl's multi handle, in whose poll the loop sleeps.
    void* multi() const noexcept { return multi_; }

    void attach(Wire& wire) noexcept { wire_ = &wire; }

    /// Has the wire perform within this turn.
    void wireHasWork() noexcept { wireIsDue_ = true; }

    /// Notes that buffers of megabytes were used: their memory is returned to the kernel once
    /// nothing is under way. The allocator alone would keep it.
    void oweMemory() noexcept { memoryIsOwed_ = true; }

    /// While one exists, something is under way that `waitUntilIdle` waits for.
    class Activity {
    public:
        Activity() noexcept { ++shared().activities_; }
        ~Activity() { --shared().activities_; }
        Activity(const Activity&) = delete;
        Activity& operator=(const Activity&) = delete;
    };

private:
    /// Where the loop sleeps, which decides what wakes it.
    enum class Sleep : std::uint8_t { none, onSemaphore, inPoll };

    Loop();

    static Loop& begin();
    static void wakeForOutput();

    void enqueue(Work& work) noexcept;
    void run();
    void turn();
    void takeHandedIn();
    void runWorks();
    void take(Work& work) noexcept;
    void perform();
    void sleep();
    int millisecondsToSleep(Sleep sleep) KIVO_EXCLUDES(mutex_);
    void poll(int descriptor, int milliseconds);
    int millisecondsToNextTimer() const;
    void pauseIfFruitless();
    void finish();

    Sleep endSleep() KIVO_REQUIRES(mutex_);
    void wake(Sleep sleep) KIVO_EXCLUDES(mutex_);
    void handToHelper(Work& work) noexcept KIVO_EXCLUDES(mutex_);
    void handToHelperLocked(Work& work) noexcept KIVO_REQUIRES(mutex_);
    void giveMemoryBack() KIVO_REQUIRES(mutex_);
    void help();
    Work* awaitHelpWanted() KIVO_EXCLUDES(mutex_);
    Work* takeHelpWanted() KIVO_REQUIRES(mutex_);
    bool hasStuckWhileWaiting(Lock& lock) KIVO_REQUIRES(mutex_);
    void startWatch();
    bool isIdleLocked() const KIVO_REQUIRES(mutex_) { return isIdle_ && helperJobs_ == 0; }

    static inline std::atomic<Loop*> running{nullptr};

    void* const multi_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> hasHandedIn_{false};
    std::atomic<unsigned> passage_{0};  // Odd while the loop is inside libcurl.
    std::atomic<bool> isWatched_{false};
    sem_t woken_{};
    sem_t loopHasParked_{};
    sem_t helperHasParked_{};

    // The loop's own.
    WorkQueue queue_;
    WorkQueue held_;       // Waits for the helper's preparations.
    WorkQueue abandoned_;  // Not freed: nothing is torn down when the process ends.
    Timers timers_;
    unsigned intake_ = 0;
    Wire* wire_ = nullptr;
    bool wireIsDue_ = false;
    bool isHolding_ = false;
    int activities_ = 0;
    int fruitlessTurns_ = 0;
    bool memoryIsOwed_ = false;

    Mutex mutex_;
    WorkQueue handedIn_ KIVO_GUARDED_BY(mutex_);
    Sleep sleep_ KIVO_GUARDED_BY(mutex_) = Sleep::none;
    bool isIdle_ KIVO_GUARDED_BY(mutex_) = true;
    Condition idleReached_;
    WorkQueue helpWanted_ KIVO_GUARDED_BY(mutex_);
    int helperJobs_ KIVO_GUARDED_BY(mutex_) = 0;
    int preparations_ KIVO_GUARDED_BY(mutex_) = 0;
    bool loopHasEnded_ KIVO_GUARDED_BY(mutex_) = false;
    Condition helperWoken_;
};

}  // namespace kivo::platform
