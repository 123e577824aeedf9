#include "kivo/platform/session/URLSessionDataTask.h"

#include <algorithm>
#include <utility>

#include "kivo/platform/http/HTTPURLProtocol.h"
#include "kivo/platform/http/NetworkThread.h"
#include "kivo/platform/session/URLSession.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/url/URLError.h"

namespace kivo::platform {

namespace {

/// If memory runs out, that is the error.
std::exception_ptr urlError(URLError::Code code) noexcept try {
    return std::make_exception_ptr(URLError(code));
} catch (...) {
    return std::current_exception();
}

}  // namespace

URLSessionDataTask::URLSessionDataTask(std::shared_ptr<const URLSessionConfiguration> configuration,
                                       std::shared_ptr<OperationQueue> delegateQueue,
                                       URLRequest request, CompletionHandler handler)
    : configuration_(std::move(configuration)),
      delegateQueue_(std::move(delegateQueue)),
      request_(std::move(request)),
      handler_(std::move(handler)) {}

void URLSessionDataTask::resume() {
    if (!Process::isOwn()) return;
    const Lock lock(mutex_);
    if (resumed_ || ended_) return;
    TaskPool::Activity unfinished;
    timeLimit_ = scheduleTimeLimit();
    unfinished_.emplace(std::move(unfinished));
    resumed_ = true;
    TaskPool::shared().submitNext(start_.of(shared_from_this()));
}

TimerQueue::Timer URLSessionDataTask::scheduleTimeLimit() {
    return NetworkThread::shared().schedule(
        TimerQueue::Clock::now() + configuration_->timeoutIntervalForResource,
        [self = shared_from_this()] { self->end(urlError(URLError::timedOut)); });
}

void URLSessionDataTask::startLoading() {
    try {
        const auto protocol = makeProtocol();
        if (adopt(protocol)) protocol->startLoading();
    } catch (...) {
        end(std::current_exception());
    }
}

std::shared_ptr<URLProtocol> URLSessionDataTask::makeProtocol() {
    const auto& classes = configuration_->protocolClasses;
    const auto accepting = std::find_if(
        classes.begin(), classes.end(),
        [this](const URLProtocolClass& candidate) { return candidate.canInit(request_); });
    if (accepting != classes.end())
        return accepting->make(accepting->canonicalRequest(request_), nullptr, shared_from_this());

    const auto longest = configuration_->timeoutIntervalForRequest;
    if (request_.timeoutInterval() > longest) request_.setTimeoutInterval(longest);
    return std::make_shared<HTTPURLProtocol>(std::move(request_), nullptr, shared_from_this());
}

/// Keeps `protocol`; false if the load has ended meanwhile.
bool URLSessionDataTask::adopt(const std::shared_ptr<URLProtocol>& protocol) {
    const Lock lock(mutex_);
    if (!ended_) protocol_ = protocol;
    return !ended_;
}

/// Most loads have ended when they are cancelled, and need no error made for them.
void URLSessionDataTask::cancel() {
    if (!hasEnded()) end(urlError(URLError::cancelled));
}

bool URLSessionDataTask::hasEnded() {
    const Lock lock(mutex_);
    return ended_;
}

void URLSessionDataTask::urlProtocolDidReceive(std::shared_ptr<const URLResponse> response,
                                               CacheStoragePolicy /*policy*/) {
    const Lock lock(mutex_);
    if (!ended_) response_ = std::move(response);
}

void URLSessionDataTask::urlProtocolDidLoad(Data data) {
    Lock lock(mutex_);
    if (ended_) return;
    if (data.size() > HTTPTransfer::maximumBodySize - data_.size()) {
        lock.unlock();
        return end(urlError(URLError::dataLengthExceedsMaximum));
    }
    if (data_.empty()) {
        data_ = std::move(data);
    } else {
        data_ += data;
    }
}

void URLSessionDataTask::urlProtocolDidFinishLoading() { end(nullptr); }

void URLSessionDataTask::urlProtocolDidFailWithError(std::exception_ptr error) {
    end(std::move(error));
}

/// The first call decides. The protocol is stopped and released outside the lock, since it may call
/// back, and before any handler runs: the handler of its own inner load must no longer find it.
void URLSessionDataTask::end(std::exception_ptr error) {
    const TaskPool::Handover atLast;
    std::shared_ptr<URLProtocol> protocol;
    std::optional<TimerQueue::Timer> timeLimit;
    {
        const Lock lock(mutex_);
        if (std::exchange(ended_, true)) return;
        error_ = std::move(error);
        protocol = std::exchange(protocol_, nullptr);
        timeLimit = std::exchange(timeLimit_, std::nullopt);
    }
    delegateQueue_->addOperation(completion_.of(shared_from_this()));
    if (timeLimit) NetworkThread::shared().unschedule(*timeLimit);
    if (protocol) protocol->stopLoading();
}

void URLSessionDataTask::complete() {
    const auto handler = std::exchange(handler_, nullptr);
    Lock lock(mutex_);
    const auto unfinished = std::move(unfinished_);
    const auto error = std::move(error_);
    auto response = std::move(response_);
    Data data = std::move(data_);
    lock.unlock();
    if (error) return handler(std::nullopt, nullptr, error);
    handler(std::move(data), std::move(response), nullptr);
}

}  // namespace kivo::platform
