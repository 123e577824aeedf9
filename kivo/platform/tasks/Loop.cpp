#include "kivo/platform/tasks/Loop.h"

#include <curl/curl.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <new>
#include <optional>
#include <thread>
#include <utility>

#include "kivo/platform/system/Output.h"
#include "kivo/platform/system/Thread.h"

namespace kivo::platform {

namespace {

thread_local bool onLoop = false;

/// Nobody is left to handle the error, and the host must not be harmed.
void runDroppingErrors(Work& work) noexcept {
    try {
        work.run();
    } catch (...) {
    }
}

/// If descriptors run out, libcurl makes a handle that cannot be woken.
CURLM* makeMulti() {
    CURLM* multi = curl_multi_init();
    if (multi != nullptr && curl_multi_wakeup(multi) == CURLM_OK) return multi;
    curl_multi_cleanup(multi);
    throw std::bad_alloc();
}

/// Takes no lock. False once `deadline` has passed.
bool waitFor(sem_t& semaphore, Loop::Clock::time_point deadline) noexcept {
    using std::chrono::nanoseconds;
    using std::chrono::seconds;
    const auto sinceStart = deadline.time_since_epoch();
    const auto whole = std::chrono::floor<seconds>(sinceStart);
    const nanoseconds rest = sinceStart - whole;
    const timespec end{.tv_sec = static_cast<std::time_t>(whole.count()),
                       .tv_nsec = static_cast<long>(rest.count())};
    while (sem_clockwait(&semaphore, CLOCK_MONOTONIC, &end) != 0)
        if (errno != EINTR) return false;
    return true;
}

}  // namespace

Loop::Loop() : multi_(makeMulti()) {
    sem_init(&woken_, 0, 0);
    sem_init(&loopHasParked_, 0, 0);
    sem_init(&helperHasParked_, 0, 0);
}

Loop& Loop::shared() {
    static Loop& loop = begin();
    return loop;
}

/// If a thread cannot be started, the next call goes on from there.
Loop& Loop::begin() {
    Process::prepare();
    static Loop& loop = *new Loop;
    [[maybe_unused]] static const bool helps = [] {
        startThread("kivo-helper", [] { loop.help(), parkThread(); });
        return true;
    }();
    startThread("kivo-loop", [] { loop.run(), parkThread(); });
    loop.stopAtExit();
    running.store(&loop, std::memory_order_release);
    Output::shared().setWaker(wakeForOutput);
    return loop;
}

bool Loop::isCurrent() noexcept { return onLoop; }

void Loop::submit(Job job, Work::Kind kind) {
    if (Process::isOwn()) enqueue(makeWork(std::move(job), kind));
}

void Loop::submit(Work& work) noexcept {
    if (Process::isOwn()) enqueue(work);
}

/// On the loop it goes behind what other threads have submitted before.
void Loop::enqueue(Work& work) noexcept {
    if (work.kind == Work::Kind::commit) return handToHelper(work);
    if (onLoop) {
        if (hasHandedIn_.load(std::memory_order_relaxed)) takeHandedIn();
        return queue_.push(work);
    }
    Lock lock(mutex_);
    handedIn_.push(work);
    hasHandedIn_.store(true, std::memory_order_relaxed);
    const Sleep sleep = endSleep();
    lock.unlock();  // The loop takes it as soon as it wakes.
    wake(sleep);
}

/// A loop that is awake looks for new work before it sleeps. Returns the sleep that must be ended
/// by `wake`.
Loop::Sleep Loop::endSleep() {
    isIdle_ = false;
    return std::exchange(sleep_, Sleep::none);
}

/// The semaphore costs half as much. The kernel may refuse libcurl's byte if it lacks memory; if it
/// does so twice, the next submission tries again.
void Loop::wake(Sleep sleep) {
    if (sleep == Sleep::none) return;
    if (sleep == Sleep::onSemaphore) {
        sem_post(&woken_);
    } else if (curl_multi_wakeup(multi_) != CURLM_OK && curl_multi_wakeup(multi_) != CURLM_OK) {
        const Lock lock(mutex_);
        sleep_ = sleep;
    }
}

void Loop::wakeForOutput() {
    Loop& loop = *running.load(std::memory_order_acquire);
    Lock lock(loop.mutex_);
    const Sleep sleep = loop.endSleep();
    lock.unlock();
    loop.wake(sleep);
}

void Loop::run() {
    onLoop = true;
    Output::gatherOnThisThread();
    while (!stopping_.load(std::memory_order_relaxed)) {
        turn();
        sleep();
    }
    finish();
}

/// Work, then the wire, then the lines: when the loop sleeps, what was begun is on its way and what
/// ended is printed.
void Loop::turn() {
    takeHandedIn();
    timers_.takeDue(Clock::now(), queue_);
    if (wireIsDue_) perform();
    runWorks();
    if (wireIsDue_) perform();
    Output::shared().write();
}

void Loop::takeHandedIn() {
    const Lock lock(mutex_);
    ++intake_;
    sleep_ = Sleep::none;
    hasHandedIn_.store(false, std::memory_order_relaxed);
    isHolding_ = preparations_ > 0;
    if (!isHolding_) queue_.prepend(held_);
    queue_.append(handedIn_);
}

/// Runs a limited number, so that the wire gets its share, and none while too many lines are
/// queued.
void Loop::runWorks() {
    constexpr int atOnce = 64;
    for (int left = atOnce; left > 0 && !queue_.isEmpty(); --left) {
        if (stopping_.load(std::memory_order_relaxed) || Output::shared().isFull()) return;
        fruitlessTurns_ = 0;
        take(queue_.pop());
    }
}

void Loop::take(Work& work) noexcept {
    if (work.kind == Work::Kind::preparation) {
        isHolding_ = true;
        handToHelper(work);
    } else if (isHolding_ && work.kind != Work::Kind::step) {
        held_.push(work);
    } else {
        runDroppingErrors(work);
    }
}

void Loop::perform() {
    wireIsDue_ = false;
    ++passage_;
    if (!isWatched_) startWatch();
    wire_->perform();
    ++passage_;
}

void Loop::sleep() {
    const auto obstacle = Output::shared().obstacle();
    const bool polls = obstacle.descriptor >= 0 || (wire_ != nullptr && wire_->isActive());
    int timeout = millisecondsToSleep(polls ? Sleep::inPoll : Sleep::onSemaphore);
    if (obstacle.milliseconds >= 0) timeout = std::min(timeout, obstacle.milliseconds);
    if (polls) return poll(obstacle.descriptor, timeout);
    if (timeout > 0) waitFor(woken_, Clock::now() + std::chrono::milliseconds(timeout));
}

/// Unless it returns 0, the loop must be woken from now on for whatever is submitted.
int Loop::millisecondsToSleep(Sleep sleep) {
    const Lock lock(mutex_);
    const bool mayRun = !queue_.isEmpty() && !Output::shared().isFull();
    const bool isReleased = !held_.isEmpty() && preparations_ == 0;
    if (mayRun || isReleased || wireIsDue_ || !handedIn_.isEmpty() || stopping_) return 0;
    sleep_ = sleep;
    isIdle_ = activities_ == 0 && queue_.isEmpty() && held_.isEmpty() && Output::shared().isIdle();
    if (isIdle_ && std::exchange(memoryIsOwed_, false)) giveMemoryBack();
    if (isIdleLocked()) idleReached_.notifyAll();
    return millisecondsToNextTimer();
}

/// Waits for what the network waits for, and for `descriptor` to become writable unless it is -1.
void Loop::poll(int descriptor, int milliseconds) {
    if (milliseconds == 0 && queue_.isEmpty()) return;
    curl_waitfd output{.fd = descriptor, .events = CURL_WAIT_POLLOUT, .revents = 0};
    int ready = 0;
    curl_multi_poll(multi_, &output, descriptor >= 0 ? 1 : 0, milliseconds, &ready);
    long curlTimeout = -1;
    curl_multi_timeout(multi_, &curlTimeout);
    wireIsDue_ = wire_ != nullptr && (wireIsDue_ || ready > 0 || curlTimeout == 0);
    pauseIfFruitless();
}

int Loop::millisecondsToNextTimer() const {
    const auto earliest = timers_.earliest();
    if (!earliest) return INT_MAX;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*earliest - Clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
}

/// If the host has closed our descriptors, or the kernel refuses to poll them, the loop must not
/// spin.
void Loop::pauseIfFruitless() {
    constexpr int tolerated = 256;
    if (++fruitlessTurns_ > tolerated) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

/// The last turn: barriers run, even if they wait for a preparation; everything else stays undone.
/// A slow reader of the lines gets half of the time that the exit hook has.
void Loop::finish() {
    takeHandedIn();
    queue_.prepend(held_);
    while (!queue_.isEmpty()) {
        Work& work = queue_.pop();
        work.kind == Work::Kind::barrier ? runDroppingErrors(work) : abandoned_.push(work);
    }
    Output::shared().drain(Clock::now() + Process::exitPatience / 2);
    {
        const Lock lock(mutex_);
        loopHasEnded_ = true;
        helperWoken_.notifyOne();
    }
    sem_post(&loopHasParked_);
}

/// The thread that calls `exit`, in a signal handler perhaps, may hold any of our locks, so none is
/// taken here.
void Loop::stop(Deadline deadline) noexcept {
    stopping_ = true;
    if (onLoop) {
        finish();
    } else {
        sem_post(&woken_);
        curl_multi_wakeup(multi_);
    }
    if (waitFor(loopHasParked_, deadline)) waitFor(helperHasParked_, deadline);
}

bool Loop::waitUntilIdle(std::chrono::milliseconds timeout) noexcept {
    if (!Process::isOwn() || onLoop) return false;
    Loop* loop = running.load(std::memory_order_acquire);
    if (loop == nullptr) return true;
    constexpr std::chrono::milliseconds longest = std::chrono::hours(24 * 365);
    const auto deadline = Clock::now() + std::clamp(timeout, std::chrono::milliseconds(0), longest);
    Lock lock(loop->mutex_);
    while (!loop->isIdleLocked())
        if (!loop->idleReached_.waitUntil(lock, deadline)) return loop->isIdleLocked();
    return true;
}

}  // namespace kivo::platform
