// The helper's part: work that may block, and the watch over the loop.

#include <malloc.h>

#include "kivo/platform/tasks/Loop.h"

namespace kivo::platform {

namespace {

constexpr std::chrono::seconds longestPerform{1};

}  // namespace

void Loop::handToHelper(Work& work) noexcept {
    const Lock lock(mutex_);
    handToHelperLocked(work);
}

void Loop::handToHelperLocked(Work& work) noexcept {
    helpWanted_.push(work);
    ++helperJobs_;
    if (work.kind == Work::Kind::preparation) ++preparations_;
    helperWoken_.notifyOne();
}

/// It takes time in proportion to the free memory of the whole process.
void Loop::giveMemoryBack() {
    class Trim final : public Work {
    public:
        Trim() : Work(Kind::commit) {}
        void run() override {
            isQueued = false;
            malloc_trim(0);
        }
        std::atomic<bool> isQueued{false};
    };
    static Trim trim;
    if (!trim.isQueued.exchange(true)) handToHelperLocked(trim);
}

void Loop::help() {
    while (Work* const work = awaitHelpWanted()) {
        const bool isPreparation = work->kind == Work::Kind::preparation;
        try {
            work->run();
        } catch (...) {  // Nobody is left to handle it.
        }
        Lock lock(mutex_);
        if (--helperJobs_ == 0 && isIdle_) idleReached_.notifyAll();
        const bool isAwaited = isPreparation && --preparations_ == 0;
        const Sleep sleep = isAwaited ? endSleep() : Sleep::none;
        lock.unlock();
        wake(sleep);
    }
    sem_post(&helperHasParked_);
}

/// Returns null once the process ends and no commit is left.
Work* Loop::awaitHelpWanted() {
    Lock lock(mutex_);
    for (;;) {
        if (Work* const work = takeHelpWanted()) return work;
        if (loopHasEnded_) return nullptr;
        if (!hasStuckWhileWaiting(lock)) continue;
        lock.unlock();
        wire_->cutOff();
        lock.lock();
    }
}

Work* Loop::takeHelpWanted() {
    while (!helpWanted_.isEmpty()) {
        Work& work = helpWanted_.pop();
        if (!stopping_ || work.kind == Work::Kind::commit) return &work;
    }
    return nullptr;
}

/// Sleeps until there may be something to do, or, while bytes move, for a second; returns whether
/// the loop has been inside libcurl all that time. A server can send data that keeps libcurl
/// reading and never lets it return.
bool Loop::hasStuckWhileWaiting(Lock& lock) {
    if (!isWatched_) {
        helperWoken_.wait(lock);
        return false;
    }
    const unsigned before = passage_;
    if (helperWoken_.waitUntil(lock, Clock::now() + longestPerform) || passage_ != before)
        return false;
    const bool isInside = before % 2 == 1;
    if (!isInside) isWatched_ = false;          // A quiet second; the next bytes start it again.
    if (passage_ != before) isWatched_ = true;  // They came before that was known.
    return isInside;
}

void Loop::startWatch() {
    const Lock lock(mutex_);
    isWatched_ = true;
    helperWoken_.notifyOne();
}

}  // namespace kivo::platform
