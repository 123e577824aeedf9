#pragma once

#include <curl/curl.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/http/ConnectionGenerations.h"
#include "kivo/platform/http/EasyHandles.h"
#include "kivo/platform/http/HTTPTransfer.h"
#include "kivo/platform/http/TimerQueue.h"
#include "kivo/platform/http/TransferQueue.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/system/Thread.h"
#include "kivo/platform/tasks/TaskPool+Scopes.h"

namespace kivo::platform {

/// The loop of the network thread: it drives libcurl's multi handle and keeps the timers. The mutex
/// guards what other threads hand in; everything else belongs to the network thread.
class NetworkLoop final : public Process::Stoppable {
public:
    NetworkLoop() : pool_(TaskPool::shared()), multi_(curl_multi_init()) {
        // When descriptors run out, libcurl creates a handle that cannot be woken.
        if (multi_ == nullptr || curl_multi_wakeup(multi_) != CURLM_OK) {
            curl_multi_cleanup(multi_);
            throw std::bad_alloc();
        }
        HTTPTransfer::lackOfMemory();
        // libcurl's own limit depends on the number of running transfers and would close the
        // connections that the next ones need.
        constexpr long keptConnections = 16;
        curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, keptConnections);
    }

    /// Creates a loop and starts its thread, which owns it from then on.
    static NetworkLoop& begin() {
        Process::prepare();
        auto loop = std::make_unique<NetworkLoop>();
        startThread("kivo-network", [loop = loop.get()] {
            loop->run();
            parkThread();
        });
        loop->stopAtExit();
        return *loop.release();
    }

    /// Only for a loop whose thread could not be started.
    ~NetworkLoop() override { curl_multi_cleanup(multi_); }
    NetworkLoop(const NetworkLoop&) = delete;
    NetworkLoop& operator=(const NetworkLoop&) = delete;

    void hand(bool starts, std::shared_ptr<HTTPTransfer> transfer) {
        Lock lock(mutex_);
        commands_.push_back({starts, std::move(transfer)});
        const bool mustWake = takeSleep();
        lock.unlock();
        if (mustWake) wake();
    }

    TimerQueue::Timer schedule(TimerQueue::Clock::time_point deadline, TimerQueue::Job job) {
        Lock lock(mutex_);
        const auto timer = timers_.add(deadline, std::move(job));
        const bool mustWake = deadline < sleepsUntil_ && takeSleep();
        lock.unlock();
        if (mustWake) wake();
        return timer;
    }

    TimerQueue::Job unschedule(const TimerQueue::Timer& timer) {
        const Lock lock(mutex_);
        return timers_.remove(timer);
    }

    /// The thread parks between two steps.
    void stop(Deadline deadline) noexcept override {
        Lock lock(mutex_);
        stopping_ = true;
        const bool mustWake = takeSleep();
        lock.unlock();
        if (mustWake) wake();
        lock.lock();
        while (!parked_ && parkedChanged_.waitUntil(lock, deadline)) continue;
    }

    void run() {
        while (takeWork()) {
            attempt([this] { submitDue(); });
            carryOutAll();
            int running = 0;
            curl_multi_perform(multi_, &running);
            settle();
            curl_multi_poll(multi_, nullptr, 0, millisecondsToSleep(), nullptr);
        }
    }

private:
    struct Command {
        bool starts;
        std::shared_ptr<HTTPTransfer> transfer;
    };

    /// Whether the caller must wake the thread, which it does outside the lock, as the thread needs
    /// the lock at once. A thread that is awake looks by itself before it sleeps.
    bool takeSleep() KIVO_REQUIRES(mutex_) { return std::exchange(sleeps_, false); }

    /// The kernel may refuse a byte when it lacks memory. If it does so twice, the next thread that
    /// hands something in tries again.
    void wake() KIVO_EXCLUDES(mutex_) {
        if (curl_multi_wakeup(multi_) == CURLM_OK || curl_multi_wakeup(multi_) == CURLM_OK) return;
        const Lock lock(mutex_);
        sleeps_ = true;
    }

    /// Takes what was handed in; false once the process exits.
    bool takeWork() {
        const Lock lock(mutex_);
        sleeps_ = false;
        std::swap(takenCommands_, commands_);
        timers_.takeDue(TimerQueue::Clock::now(), dueJobs_);
        if (!stopping_) return true;
        parked_ = true;
        parkedChanged_.notifyAll();
        return false;
    }

    /// If memory runs out, the step stays unfinished and the next turn continues it.
    template <typename Step>
    static void attempt(const Step& step) noexcept {
        try {
            step();
        } catch (...) {
        }
    }

    /// From here on, whatever is handed in must wake the thread.
    int millisecondsToSleep() {
        const Lock lock(mutex_);
        sleeps_ = commands_.empty() && !stopping_;
        if (!sleeps_) return 0;
        if (!dueJobs_.empty()) return retryMilliseconds;
        const auto earliest = timers_.earliest();
        sleepsUntil_ = earliest.value_or(TimerQueue::Clock::time_point::max());
        if (!earliest) return INT_MAX;
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(*earliest - TimerQueue::Clock::now());
        return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
    }

    void carryOutAll() {
        for (auto& command : takenCommands_) carryOut(command);
        takenCommands_.clear();
    }

    void carryOut(Command& command) {
        if (command.starts) return admit(std::move(command.transfer));
        attempt([&] { abort(std::move(command.transfer)); });
    }

    /// If memory runs out, the rest stays for the next turn. The pool also destroys the job, since
    /// it may hold a caller's code.
    void submitDue() {
        for (; !dueJobs_.empty(); dueJobs_.erase(dueJobs_.begin()))
            pool_.submit([job = dueJobs_.begin()->second] { std::exchange(*job, nullptr)(); });
    }

    void admit(std::shared_ptr<HTTPTransfer> transfer) {
        try {
            if (!queue_.admit(transfer)) return;
        } catch (const std::bad_alloc&) {
            transfer->conclude(nullptr, CURLE_OUT_OF_MEMORY);
            return pool_.submitNext(transfer->completing.of(transfer));
        }
        begin(std::move(transfer));
    }

    void begin(std::shared_ptr<HTTPTransfer> transfer) {
        CURL* easy = handles_.take();
        if (!prepare(easy, transfer)) conclude(easy, std::move(transfer), CURLE_OUT_OF_MEMORY);
    }

    /// False if memory runs out.
    bool prepare(CURL* easy, const std::shared_ptr<HTTPTransfer>& transfer) {
        if (easy == nullptr) return false;
        try {
            active_.emplace(easy, transfer);
            transfer->configure(easy, generations_.of(transfer->host()));
            if (curl_multi_add_handle(multi_, easy) == CURLM_OK) return true;
        } catch (const std::bad_alloc&) {  // The return value tells.
        }
        active_.erase(easy);
        return false;
    }

    void abort(std::shared_ptr<HTTPTransfer> transfer) {
        if (!queue_.withdraw(transfer)) abortActive(transfer);
        releaseOnPool(std::move(transfer));
    }

    /// Destroys `object` on the pool: its destructor may be a caller's code.
    template <typename Object>
    void releaseOnPool(Object object) {
        pool_.submit([object = std::move(object)] {});
    }

    void abortActive(const std::shared_ptr<HTTPTransfer>& transfer) {
        const auto found = std::find_if(active_.begin(), active_.end(), [&](const auto& entry) {
            return entry.second == transfer;
        });
        if (found == active_.end()) return;
        CURL* easy = found->first;
        active_.erase(found);
        generations_.renew(transfer->host(), transfer->generation());
        curl_easy_setopt(easy, CURLOPT_FORBID_REUSE, 1L);
        curl_multi_remove_handle(multi_, easy);
        curl_easy_cleanup(easy);
        beginNext(transfer->host(), false);
    }

    /// Hands all that has ended to the pool together, after the next transfers have started.
    void settle() {
        const TaskPool::Handover together;
        collectEnded();
        beginConnected();
    }

    void collectEnded() {
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
            CURL* easy = message->easy_handle;
            const CURLcode code = message->data.result;
            curl_multi_remove_handle(multi_, easy);
            auto ended = active_.extract(easy);
            conclude(easy, std::move(ended.mapped()), code);
        }
    }

    void conclude(CURL* easy, std::shared_ptr<HTTPTransfer> transfer, CURLcode code) {
        if (code == CURLE_OPERATION_TIMEDOUT)
            generations_.renew(transfer->host(), transfer->generation());
        transfer->conclude(easy, code);
        handles_.giveBack(easy);
        pool_.submitNext(transfer->completing.of(transfer));
        beginNext(transfer->host(), transfer->isMultiplexed());
    }

    void beginNext(const std::string& host, bool isMultiplexed) {
        for (auto& next : queue_.ended(host, isMultiplexed)) begin(std::move(next));
    }

    void beginConnected() {
        for (auto& next : queue_.connected()) begin(std::move(next));
    }

    static constexpr int retryMilliseconds = 100;

    TaskPool& pool_;
    CURLM* multi_;
    std::unordered_map<CURL*, std::shared_ptr<HTTPTransfer>> active_;
    EasyHandles handles_;
    std::vector<Command> takenCommands_;
    TimerQueue::Jobs dueJobs_;
    TransferQueue queue_;
    ConnectionGenerations generations_;

    Mutex mutex_;
    std::vector<Command> commands_ KIVO_GUARDED_BY(mutex_);
    TimerQueue timers_ KIVO_GUARDED_BY(mutex_);
    bool sleeps_ KIVO_GUARDED_BY(mutex_) = false;
    /// The limit of the current sleep; libcurl may wake the thread earlier.
    TimerQueue::Clock::time_point sleepsUntil_ KIVO_GUARDED_BY(mutex_){};
    bool stopping_ KIVO_GUARDED_BY(mutex_) = false;
    bool parked_ KIVO_GUARDED_BY(mutex_) = false;
    Condition parkedChanged_;
};

}  // namespace kivo::platform
