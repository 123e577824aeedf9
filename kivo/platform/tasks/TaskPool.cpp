#include "kivo/platform/tasks/TaskPool.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>

#include "kivo/platform/system/Process.h"
#include "kivo/platform/system/Thread.h"
#include "kivo/platform/tasks/TaskPool+Scopes.h"

namespace kivo::platform {

namespace {

thread_local bool onPoolThread = false;
/// Where what this thread submits gathers, while it does.
thread_local WorkQueue* gathering = nullptr;

}  // namespace

/// The queue and what guards it. Barriers stand in the same queue as everything else: while one
/// runs, nobody takes anything up.
class TaskPool::State final : public Process::Stoppable {
public:
    /// The pool's, once it has a thread.
    static inline std::atomic<State*> running{nullptr};

    /// Makes one, which belongs to its threads as soon as there is one.
    static State& begin() {
        Process::prepare();
        auto state = std::make_unique<State>();
        state->startWorker("kivo-pool-1");
        State& begun = *state.release();
        begun.stopAtExit();
        running.store(&begun, std::memory_order_release);
        try {
            begun.startWorker("kivo-pool-2");
        } catch (const std::exception&) {  // One thread does the work of two, only later.
        }
        return begun;
    }

    void push(Work::Kind kind, Job job) {
        if (Process::isOwn()) push(makeWork(std::move(job), kind));
    }

    /// `carriesOn` says that the calling thread, if it is one of the pool's, is about to be free.
    void push(Work& work, bool carriesOn = false) {
        if (gathering != nullptr) return gathering->push(work);
        std::unique_lock lock(mutex_);
        const bool isTakenNext = carriesOn && onPoolThread && queue_.isEmpty();
        pushLocked(work);
        if (!isTakenNext) unlockAndWakeOne(lock);
    }

    void pushAll(WorkQueue& gathered) {
        std::unique_lock lock(mutex_);
        while (!gathered.isEmpty()) pushLocked(gathered.pop());
        unlockAndWakeOne(lock);
    }

    void beginActivity() {
        const std::lock_guard lock(mutex_);
        ++unfinished_;
    }

    void endActivity() {
        const std::lock_guard lock(mutex_);
        endActivityLocked();
    }

    bool waitUntilIdle(std::chrono::milliseconds timeout) {
        constexpr std::chrono::milliseconds longest = std::chrono::hours(24 * 365);
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::min(timeout, longest),
                                 [this] { return unfinished_ == 0; });
    }

    /// The threads park once barriers and commits are done.
    void stop(Deadline deadline) noexcept override {
        std::unique_lock lock(mutex_);
        stopping_ = true;
        ready_.notify_all();
        changed_.wait_until(lock, deadline, [this] { return workers_ == 0; });
    }

private:
    void startWorker(const char* name) {
        const std::lock_guard lock(mutex_);
        startThread(name, [this] {
            work();
            parkThread();
        });
        ++workers_;
    }

    void pushLocked(Work& work) {
        queue_.push(work);
        ++unfinished_;
    }

    void endActivityLocked() {
        if (--unfinished_ == 0) changed_.notify_all();
    }

    /// A woken worker wakes the next one itself while there is more to take, so one wake is enough.
    /// It needs the lock at once, so it is woken outside.
    void unlockAndWakeOne(std::unique_lock<std::mutex>& lock) {
        const bool isNeeded = sleepers_ > 0 && !wakeIsDue_ && canTake();
        wakeIsDue_ = wakeIsDue_ || isNeeded;
        lock.unlock();
        if (isNeeded) ready_.notify_one();
    }

    bool canTake() const { return !barrierRuns_ && !queue_.isEmpty(); }

    void work() {
        onPoolThread = true;
        std::unique_lock lock(mutex_);
        while (awaitWork(lock)) {
            Work& work = queue_.pop();
            if (stopping_ && work.kind == Work::Kind::task) {
                abandoned_.push(work);
                continue;
            }
            const bool isBarrier = work.kind == Work::Kind::barrier;
            barrierRuns_ = isBarrier;
            unlockAndWakeOne(lock);
            run(work);
            lock.lock();
            if (isBarrier) barrierRuns_ = false;
            endActivityLocked();
        }
        --workers_;
        ready_.notify_all();  // The other one may have waited for a barrier of this one's.
        changed_.notify_all();
    }

    /// Sleeps until there is something to take; false once the process ends and nothing is left.
    bool awaitWork(std::unique_lock<std::mutex>& lock) {
        ++sleepers_;
        ready_.wait(lock, [this] { return canTake() || (stopping_ && !barrierRuns_); });
        --sleepers_;
        wakeIsDue_ = false;
        return canTake();
    }

    static void run(Work& work) noexcept {
        try {
            work.run();
        } catch (...) {  // Nobody is left to tell; the host must not be harmed.
        }
    }

    std::mutex mutex_;
    std::condition_variable ready_;
    std::condition_variable changed_;
    WorkQueue queue_;
    WorkQueue abandoned_;  // Kept, not freed: at the process end nothing is torn down.
    int workers_ = 0;
    int sleepers_ = 0;
    int unfinished_ = 0;
    bool wakeIsDue_ = false;
    bool barrierRuns_ = false;
    bool stopping_ = false;
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
