#include "kivo/platform/tasks/TaskPool.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <utility>

#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/system/Thread.h"
#include "kivo/platform/tasks/TaskPool+Scopes.h"

namespace kivo::platform {

namespace {

thread_local bool onPoolThread = false;
/// Where this thread gathers its submissions, or null if it hands them over at once.
thread_local WorkQueue* gathering = nullptr;

}  // namespace

/// The queue and its lock. Barriers wait in the same queue as all other work: while one runs, no
/// thread takes any work.
class TaskPool::State final : public Process::Stoppable {
public:
    /// The pool's, once it has a thread.
    static inline std::atomic<State*> running{nullptr};

    /// Creates the state, which its threads own once the first of them has started.
    static State& begin() {
        Process::prepare();
        auto state = std::make_unique<State>();
        state->startWorker("kivo-pool-1");
        State& begun = *state.release();
        begun.stopAtExit();
        running.store(&begun, std::memory_order_release);
        try {
            begun.startWorker("kivo-pool-2");
        } catch (const std::exception&) {  // One thread does the work of two, more slowly.
        }
        return begun;
    }

    void push(Work::Kind kind, Job job) {
        if (Process::isOwn()) push(makeWork(std::move(job), kind));
    }

    /// `carriesOn` tells that the calling thread, if it belongs to the pool, is about to be free.
    void push(Work& work, bool carriesOn = false) {
        if (gathering != nullptr) return gathering->push(work);
        Lock lock(mutex_);
        const bool isTakenNext = carriesOn && onPoolThread && queue_.isEmpty();
        pushLocked(work);
        const bool mustWake = !isTakenNext && takeWake();
        lock.unlock();
        if (mustWake) ready_.notifyOne();
    }

    void pushAll(WorkQueue& gathered) {
        Lock lock(mutex_);
        while (!gathered.isEmpty()) pushLocked(gathered.pop());
        const bool mustWake = takeWake();
        lock.unlock();
        if (mustWake) ready_.notifyOne();
    }

    void beginActivity() {
        const Lock lock(mutex_);
        ++unfinished_;
    }

    void endActivity() {
        const Lock lock(mutex_);
        endActivityLocked();
    }

    bool waitUntilIdle(std::chrono::milliseconds timeout) {
        constexpr std::chrono::milliseconds longest = std::chrono::hours(24 * 365);
        const auto deadline = std::chrono::steady_clock::now() +
                              std::clamp(timeout, std::chrono::milliseconds::zero(), longest);
        Lock lock(mutex_);
        while (unfinished_ != 0 && changed_.waitUntil(lock, deadline)) continue;
        return unfinished_ == 0;
    }

    /// The threads park once barriers and commits are done.
    void stop(Deadline deadline) noexcept override {
        Lock lock(mutex_);
        stopping_ = true;
        ready_.notifyAll();
        while (workers_ != 0 && changed_.waitUntil(lock, deadline)) continue;
    }

private:
    void startWorker(const char* name) {
        const Lock lock(mutex_);
        startThread(name, [this] {
            work();
            parkThread();
        });
        ++workers_;
    }

    void pushLocked(Work& work) KIVO_REQUIRES(mutex_) {
        queue_.push(work);
        ++unfinished_;
    }

    void endActivityLocked() KIVO_REQUIRES(mutex_) {
        if (--unfinished_ == 0) changed_.notifyAll();
    }

    /// Whether the caller must wake a worker, which it does outside the lock, as the worker needs
    /// the lock at once. A woken worker wakes the next one itself while there is more to take, so
    /// one wake is enough.
    bool takeWake() KIVO_REQUIRES(mutex_) {
        const bool isNeeded = sleepers_ > 0 && !wakeIsDue_ && canTake();
        wakeIsDue_ = wakeIsDue_ || isNeeded;
        return isNeeded;
    }

    bool canTake() const KIVO_REQUIRES(mutex_) { return !barrierRuns_ && !queue_.isEmpty(); }

    void work() {
        onPoolThread = true;
        Lock lock(mutex_);
        while (awaitWork(lock)) {
            Work& work = queue_.pop();
            if (stopping_ && work.kind == Work::Kind::task) {
                abandoned_.push(work);
                continue;
            }
            const bool isBarrier = work.kind == Work::Kind::barrier;
            barrierRuns_ = isBarrier;
            const bool mustWake = takeWake();
            lock.unlock();
            if (mustWake) ready_.notifyOne();
            run(work);
            lock.lock();
            if (isBarrier) barrierRuns_ = false;
            endActivityLocked();
        }
        --workers_;
        ready_.notifyAll();  // The other thread may be waiting for a barrier that this one ran.
        changed_.notifyAll();
    }

    /// Sleeps until there is work to take; false once the process exits and no work is left.
    bool awaitWork(Lock& lock) KIVO_REQUIRES(mutex_) {
        ++sleepers_;
        while (!canTake() && (!stopping_ || barrierRuns_)) ready_.wait(lock);
        --sleepers_;
        wakeIsDue_ = false;
        return canTake();
    }

    static void run(Work& work) noexcept {
        try {
            work.run();
        } catch (...) {  // There is nobody to report it to, and the host must not be harmed.
        }
    }

    Mutex mutex_;
    Condition ready_;
    Condition changed_;
    WorkQueue queue_ KIVO_GUARDED_BY(mutex_);
    // Kept, not freed: nothing is torn down at exit.
    WorkQueue abandoned_ KIVO_GUARDED_BY(mutex_);
    int workers_ KIVO_GUARDED_BY(mutex_) = 0;
    int sleepers_ KIVO_GUARDED_BY(mutex_) = 0;
    int unfinished_ KIVO_GUARDED_BY(mutex_) = 0;
    bool wakeIsDue_ KIVO_GUARDED_BY(mutex_) = false;
    bool barrierRuns_ KIVO_GUARDED_BY(mutex_) = false;
    bool stopping_ KIVO_GUARDED_BY(mutex_) = false;
};

TaskPool::TaskPool() : state_(State::begin()) {}

TaskPool& TaskPool::shared() {
    static TaskPool& pool = *new TaskPool;
    return pool;
}

void TaskPool::submit(Job job) { state_.push(Work::Kind::task, std::move(job)); }
void TaskPool::submitBarrier(Job job) { state_.push(Work::Kind::barrier, std::move(job)); }
void TaskPool::submitCommit(Job job) { state_.push(Work::Kind::commit, std::move(job)); }

void TaskPool::submitNext(Work& work) noexcept {
    if (Process::isOwn()) state_.push(work, true);
}

bool TaskPool::waitUntilIdle(std::chrono::milliseconds timeout) noexcept {
    if (!Process::isOwn()) return false;
    State* state = State::running.load(std::memory_order_acquire);
    return state == nullptr || state->waitUntilIdle(timeout);
}

bool TaskPool::isPoolThread() noexcept { return onPoolThread; }

TaskPool::Handover::Handover() : isOutermost_(gathering == nullptr) {
    if (isOutermost_) gathering = &gathered_;
}

TaskPool::Handover::~Handover() {
    if (!isOutermost_) return;
    gathering = nullptr;
    if (!gathered_.isEmpty()) TaskPool::shared().state_.pushAll(gathered_);
}

TaskPool::Activity::Activity() { TaskPool::shared().state_.beginActivity(); }
TaskPool::Activity::~Activity() {
    if (isOwn_) TaskPool::shared().state_.endActivity();
}

}  // namespace kivo::platform
