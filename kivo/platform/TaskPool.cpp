#include "kivo/platform/TaskPool.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

#include "kivo/platform/Process.h"
#include "kivo/platform/TaskPool+Scopes.h"
#include "kivo/platform/Thread.h"

namespace kivo::platform {

namespace {

std::atomic<bool> started{false};
thread_local bool onPoolThread = false;
thread_local bool isHandingOver = false;

}  // namespace

/// The queue and what guards it. Barriers stand in the same queue as everything else: while one
/// runs, nobody takes anything up.
class TaskPool::State {
public:
    void start() {
        startWorker("kivo-pool-1");
        try {
            startWorker("kivo-pool-2");
        } catch (const std::system_error&) {  // One thread does the work of two, only later.
        }
    }

    void push(Kind kind, Job job) {
        if (isHandingOver) return gathered.push_back({kind, std::move(job)});
        std::unique_lock lock(mutex_);
        pushLocked(kind, std::move(job));
        const bool isTakenNext = kind == Kind::next && onPoolThread && queue_.size() == 1;
        if (!isTakenNext) unlockAndWakeOne(lock);
    }

    static bool hasGathered() { return !gathered.empty(); }

    /// Without memory for one of them, it and what follows it are dropped.
    void pushGathered() noexcept {
        std::unique_lock lock(mutex_);
        try {
            for (auto& [kind, job] : gathered) pushLocked(kind, std::move(job));
        } catch (const std::bad_alloc&) {
        }
        unlockAndWakeOne(lock);
        gathered.clear();
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

    void stop(std::chrono::steady_clock::time_point deadline) {
        std::unique_lock lock(mutex_);
        stopping_ = true;
        ready_.notify_all();
        changed_.wait_until(lock, deadline, [this] { return workers_ == 0; });
    }

private:
    struct Entry {
        Kind kind;
        Job job;
    };

    void startWorker(const char* name) {
        const std::lock_guard lock(mutex_);
        startThread(name, [this] {
            work();
            parkThread();
        });
        ++workers_;
    }

    void pushLocked(Kind kind, Job job) {
        queue_.push_back({kind, std::move(job)});
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

    bool canTake() const { return !barrierRuns_ && !queue_.empty(); }

    void work() {
        onPoolThread = true;
        std::unique_lock lock(mutex_);
        while (awaitEntry(lock)) {
            Entry entry = std::move(queue_.front());
            queue_.pop_front();
            if (stopping_ && isTask(entry.kind)) {
                abandoned_.push_back(std::move(entry));
                continue;
            }
            barrierRuns_ = entry.kind == Kind::barrier;
            unlockAndWakeOne(lock);
            run(entry.job);
            lock.lock();
            if (entry.kind == Kind::barrier) barrierRuns_ = false;
            endActivityLocked();
        }
        --workers_;
        ready_.notify_all();  // The other one may have waited for a barrier of this one's.
        changed_.notify_all();
    }

    /// Sleeps until there is something to take; false once the process ends and nothing is left.
    bool awaitEntry(std::unique_lock<std::mutex>& lock) {
        ++sleepers_;
        ready_.wait(lock, [this] { return canTake() || (stopping_ && !barrierRuns_); });
        --sleepers_;
        wakeIsDue_ = false;
        return canTake();
    }

    static bool isTask(Kind kind) { return kind == Kind::task || kind == Kind::next; }

    static void run(Job& job) noexcept {
        try {
            job();
        } catch (...) {  // Nobody is left to tell; the host must not be harmed.
        }
        job = nullptr;
    }

    static inline thread_local std::vector<Entry> gathered;  // Keeps its memory for the next time.

    std::mutex mutex_;
    std::condition_variable ready_;
    std::condition_variable changed_;
    std::deque<Entry> queue_;
    std::deque<Entry> abandoned_;  // Kept, not freed: at the process end nothing is torn down.
    int workers_ = 0;
    int sleepers_ = 0;
    int unfinished_ = 0;
    bool wakeIsDue_ = false;
    bool barrierRuns_ = false;
    bool stopping_ = false;
};

TaskPool::TaskPool() : state_(*new State) {
    Process::prepare();
    state_.start();
    started = true;
}

TaskPool& TaskPool::shared() {
    static TaskPool& pool = *new TaskPool;
    return pool;
}

void TaskPool::submit(Job job) { enqueue(Kind::task, std::move(job)); }
void TaskPool::submitNext(Job job) { enqueue(Kind::next, std::move(job)); }
void TaskPool::submitBarrier(Job job) { enqueue(Kind::barrier, std::move(job)); }
void TaskPool::submitCommit(Job job) { enqueue(Kind::commit, std::move(job)); }

void TaskPool::enqueue(Kind kind, Job job) {
    if (Process::isOwn()) state_.push(kind, std::move(job));
}

bool TaskPool::waitUntilIdle(std::chrono::milliseconds timeout) {
    return Process::isOwn() && state_.waitUntilIdle(timeout);
}

void TaskPool::stopAll(std::chrono::steady_clock::time_point deadline) {
    if (started) shared().state_.stop(deadline);
}

bool TaskPool::isPoolThread() noexcept { return onPoolThread; }

TaskPool::Handover::Handover() : isOutermost_(!std::exchange(isHandingOver, true)) {}

TaskPool::Handover::~Handover() {
    if (!isOutermost_) return;
    isHandingOver = false;
    if (State::hasGathered()) TaskPool::shared().state_.pushGathered();
}

TaskPool::Activity::Activity() { TaskPool::shared().state_.beginActivity(); }
TaskPool::Activity::~Activity() {
    if (isOwn_) TaskPool::shared().state_.endActivity();
}

}  // namespace kivo::platform
