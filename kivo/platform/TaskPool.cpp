#include "kivo/platform/TaskPool.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>

#include "kivo/platform/Process.h"
#include "kivo/platform/TaskPool+Scopes.h"
#include "kivo/platform/Thread.h"

namespace kivo::platform {

namespace {

std::atomic<bool> started{false};
thread_local bool onPoolThread = false;
thread_local TaskPool::Handover* openHandover = nullptr;

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
        const std::lock_guard lock(mutex_);
        pushLocked(kind, std::move(job));
        wakeOne();
    }

    void pushAll(std::vector<std::pair<Kind, Job>>& jobs) {
        const std::lock_guard lock(mutex_);
        for (auto& [kind, job] : jobs) pushLocked(kind, std::move(job));
        wakeOne();
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
    void wakeOne() {
        if (sleepers_ == 0 || wakeIsDue_ || !canTake()) return;
        wakeIsDue_ = true;
        ready_.notify_one();
    }

    bool canTake() const { return !barrierRuns_ && !queue_.empty(); }

    void work() {
        onPoolThread = true;
        std::unique_lock lock(mutex_);
        while (awaitEntry(lock)) {
            Entry entry = std::move(queue_.front());
            queue_.pop_front();
            if (stopping_ && entry.kind == Kind::task) {
                abandoned_.push_back(std::move(entry));
                continue;
            }
            barrierRuns_ = entry.kind == Kind::barrier;
            wakeOne();
            lock.unlock();
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

    static void run(Job& job) noexcept {
        try {
            job();
        } catch (...) {  // Nobody is left to tell; the host must not be harmed.
        }
        job = nullptr;
    }

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
void TaskPool::submitBarrier(Job job) { enqueue(Kind::barrier, std::move(job)); }
void TaskPool::submitCommit(Job job) { enqueue(Kind::commit, std::move(job)); }

void TaskPool::enqueue(Kind kind, Job job) {
    if (!Process::isOwn()) return;
    if (openHandover != nullptr) {
        openHandover->gathered_.emplace_back(kind, std::move(job));
    } else {
        state_.push(kind, std::move(job));
    }
}

bool TaskPool::waitUntilIdle(std::chrono::milliseconds timeout) {
    return Process::isOwn() && state_.waitUntilIdle(timeout);
}

void TaskPool::stopAll(std::chrono::steady_clock::time_point deadline) {
    if (started) shared().state_.stop(deadline);
}

bool TaskPool::isPoolThread() noexcept { return onPoolThread; }

TaskPool::Handover::Handover() {
    if (openHandover == nullptr) openHandover = this;
}

TaskPool::Handover::~Handover() {
    if (openHandover != this) return;
    openHandover = nullptr;
    try {
        if (!gathered_.empty()) TaskPool::shared().state_.pushAll(gathered_);
    } catch (...) {  // No memory: the operation is dropped, the host goes on.
    }
}

TaskPool::Activity::Activity() { TaskPool::shared().state_.beginActivity(); }
TaskPool::Activity::~Activity() { TaskPool::shared().state_.endActivity(); }

}  // namespace kivo::platform
