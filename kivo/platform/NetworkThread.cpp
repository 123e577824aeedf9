#include "kivo/platform/NetworkThread.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <condition_variable>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kivo/platform/ConnectionGenerations.h"
#include "kivo/platform/Process.h"
#include "kivo/platform/TaskPool.h"
#include "kivo/platform/Thread.h"
#include "kivo/platform/TransferQueue.h"

namespace kivo::platform {

namespace {

std::atomic<bool> started{false};

/// Ends the life of `object` on the pool: its destructor may be a caller's code.
template <typename Object>
void releaseOnPool(Object object) {
    TaskPool::shared().submit([object = std::move(object)] {});
}

}  // namespace

/// What the thread does. The mutex guards what other threads hand in; the rest belongs to the
/// thread alone.
class NetworkThread::Loop {
public:
    Loop() : multi_(curl_multi_init()) {
        if (multi_ == nullptr) throw std::bad_alloc();
    }

    void hand(bool starts, std::shared_ptr<HTTPTransfer> transfer) {
        const std::lock_guard lock(mutex_);
        commands_.push_back({starts, std::move(transfer)});
        wake();
    }

    TimerQueue::Timer schedule(TimerQueue::Clock::time_point deadline, TimerQueue::Job job) {
        const std::lock_guard lock(mutex_);
        const auto before = timers_.earliest();
        const auto timer = timers_.add(deadline, std::move(job));
        if (!before || deadline < *before) wake();
        return timer;
    }

    TimerQueue::Job unschedule(const TimerQueue::Timer& timer) {
        const std::lock_guard lock(mutex_);
        return timers_.remove(timer);
    }

    void stop(TimerQueue::Clock::time_point deadline) {
        std::unique_lock lock(mutex_);
        stopping_ = true;
        wake();
        parkedChanged_.wait_until(lock, deadline, [this] { return parked_; });
    }

    void run() {
        while (takeWork()) {
            attempt([this] { carryOutAll(); });
            int running = 0;
            curl_multi_perform(multi_, &running);
            attempt([this] { collectEnded(); });
            curl_multi_poll(multi_, nullptr, 0, millisecondsToSleep(), nullptr);
        }
    }

private:
    struct Command {
        bool starts;
        std::shared_ptr<HTTPTransfer> transfer;
    };

    void wake() {
        if (!std::exchange(wakeIsDue_, true)) curl_multi_wakeup(multi_);
    }

    /// Takes what has been handed in; false once the process ends.
    bool takeWork() {
        const std::lock_guard lock(mutex_);
        wakeIsDue_ = false;
        std::swap(takenCommands_, commands_);
        dueJobs_ = timers_.takeDue(TimerQueue::Clock::now());
        if (!stopping_) return true;
        parked_ = true;
        parkedChanged_.notify_all();
        return false;
    }

    /// Without memory a step is left out: time limits end what it leaves behind, and the host goes
    /// on.
    template <typename Step>
    static void attempt(const Step& step) noexcept {
        try {
            step();
        } catch (...) {
        }
    }

    int millisecondsToSleep() {
        const std::lock_guard lock(mutex_);
        const auto earliest = timers_.earliest();
        if (!earliest) return INT_MAX;
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(*earliest - TimerQueue::Clock::now());
        return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
    }

    void carryOutAll() {
        for (auto& command : std::exchange(takenCommands_, {})) carryOut(std::move(command));
        for (auto& job : std::exchange(dueJobs_, {})) TaskPool::shared().submit(std::move(job));
    }

    void carryOut(Command command) {
        if (!command.starts) {
            abort(std::move(command.transfer));
        } else if (queue_.admit(command.transfer)) {
            begin(std::move(command.transfer));
        }
    }

    void begin(std::shared_ptr<HTTPTransfer> transfer) {
        CURL* easy = takeHandle();
        if (!prepare(easy, transfer))
            return conclude(easy, std::move(transfer), CURLE_OUT_OF_MEMORY);
        active_.emplace(easy, std::move(transfer));
    }

    /// False when there is no memory for it.
    bool prepare(CURL* easy, const std::shared_ptr<HTTPTransfer>& transfer) {
        if (easy == nullptr) return false;
        try {
            transfer->configure(easy, generations_.of(transfer->host()));
            return curl_multi_add_handle(multi_, easy) == CURLM_OK;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    void abort(std::shared_ptr<HTTPTransfer> transfer) {
        if (!queue_.withdraw(transfer)) abortActive(transfer);
        releaseOnPool(std::move(transfer));
    }

    void abortActive(const std::shared_ptr<HTTPTransfer>& transfer) {
        const auto found = std::find_if(active_.begin(), active_.end(), [&](const auto& entry) {
            return entry.second == transfer;
        });
        if (found == active_.end()) return;
        CURL* easy = found->first;
        active_.erase(found);
        generations_.renew(transfer->host());
        curl_easy_setopt(easy, CURLOPT_FORBID_REUSE, 1L);
        curl_multi_remove_handle(multi_, easy);
        keepHandle(easy);
        beginNext(transfer->host(), false);
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
        if (code == CURLE_OPERATION_TIMEDOUT) generations_.renew(transfer->host());
        transfer->conclude(easy, code);
        keepHandle(easy);
        const std::string host = transfer->host();
        const bool isMultiplexed = transfer->isMultiplexed();
        TaskPool::shared().submit([transfer = std::move(transfer)] { transfer->complete(); });
        beginNext(host, isMultiplexed);
    }

    void beginNext(const std::string& host, bool isMultiplexed) {
        for (auto& next : queue_.ended(host, isMultiplexed)) begin(std::move(next));
    }

    CURL* takeHandle() {
        if (idleHandles_.empty()) return curl_easy_init();
        CURL* easy = idleHandles_.back();
        idleHandles_.pop_back();
        return easy;
    }

    /// Handles are reused: making one costs more than a request does.
    void keepHandle(CURL* easy) {
        constexpr std::size_t kept = 16;
        if (easy == nullptr) return;
        if (idleHandles_.size() >= kept) return curl_easy_cleanup(easy);
        curl_easy_reset(easy);
        idleHandles_.push_back(easy);
    }

    CURLM* multi_;
    std::unordered_map<CURL*, std::shared_ptr<HTTPTransfer>> active_;
    std::vector<CURL*> idleHandles_;
    std::vector<Command> takenCommands_;
    std::vector<TimerQueue::Job> dueJobs_;
    TransferQueue queue_;
    ConnectionGenerations generations_;

    std::mutex mutex_;
    std::vector<Command> commands_;
    TimerQueue timers_;
    bool wakeIsDue_ = false;
    bool stopping_ = false;
    bool parked_ = false;
    std::condition_variable parkedChanged_;
};

NetworkThread::NetworkThread() : loop_((Process::prepare(), *new Loop)) {
    startThread("kivo-network", [this] {
        loop_.run();
        parkThread();
    });
    started = true;
}

NetworkThread& NetworkThread::shared() {
    static NetworkThread& thread = *new NetworkThread;
    return thread;
}

void NetworkThread::start(std::shared_ptr<HTTPTransfer> transfer) {
    loop_.hand(true, std::move(transfer));
}

void NetworkThread::cancel(std::shared_ptr<HTTPTransfer> transfer) {
    loop_.hand(false, std::move(transfer));
}

TimerQueue::Timer NetworkThread::schedule(TimerQueue::Clock::time_point deadline,
                                          TimerQueue::Job job) {
    return loop_.schedule(deadline, std::move(job));
}

void NetworkThread::unschedule(const TimerQueue::Timer& timer) {
    const TimerQueue::Job dropped = loop_.unschedule(timer);  // Destroyed here, outside every lock.
}

void NetworkThread::stopAll(TimerQueue::Clock::time_point deadline) {
    if (started) shared().loop_.stop(deadline);
}

}  // namespace kivo::platform
