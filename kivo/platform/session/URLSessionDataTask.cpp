#include "kivo/platform/session/URLSessionDataTask.h"

#include <algorithm>
#include <utility>

#include "kivo/platform/http/HTTPURLProtocol.h"
#include "kivo/platform/session/URLSession.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/url/URLError.h"

namespace kivo::platform {

namespace {

/// If memory runs out, that is the error.
std::exception_ptr urlError(URLError::Code code) noexcept try {
    return makeError(URLError(code));
} catch (...) {
    return currentError();
}

}  // namespace

URLSessionDataTask::URLSessionDataTask(std::shared_ptr<const URLSessionConfiguration> configuration,
                                       URLRequest request, CompletionHandler handler)
    : configuration_(std::move(configuration)),
      request_(std::move(request)),
      handler_(std::move(handler)) {}

void URLSessionDataTask::resume() {
    if (!Process::isOwn()) return;
    Loop& loop = Loop::shared();
    if (isResumed_.exchange(true)) return;
    resumedAt_ = Loop::Clock::now();
    Loop::isCurrent() ? start() : loop.submit(start_.of(shared_from_this()));
}

void URLSessionDataTask::start() {
    if (ended_) return;
    unfinished_.emplace();
    timeLimit_.of(shared_from_this());
    Loop::shared().schedule(timer_, resumedAt_ + configuration_->timeoutIntervalForResource);
    try {
        startLoading();
    } catch (...) {
        end(currentError());
    }
}

void URLSessionDataTask::startLoading() {
    const auto protocol = makeProtocol();
    protocol_ = protocol;  // The load may end, and let it go, before it has returned.
    protocol->startLoading();
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

void URLSessionDataTask::cancel() {
    if (!Process::isOwn()) return;
    if (Loop::isCurrent()) return cancelIfUnended();
    Loop& loop = Loop::shared();
    if (!isCancelled_.exchange(true)) loop.submit(cancel_.of(shared_from_this()));
}

/// Most loads have ended when they are cancelled, and need no error made for them.
void URLSessionDataTask::cancelIfUnended() {
    if (!ended_) end(urlError(URLError::cancelled));
}

void URLSessionDataTask::timeOut() {
    if (!ended_) end(urlError(URLError::timedOut));
}

void URLSessionDataTask::urlProtocolDidReceive(std::shared_ptr<const URLResponse> response,
                                               CacheStoragePolicy /*policy*/) {
    if (!ended_) response_ = std::move(response);
}

void URLSessionDataTask::urlProtocolDidLoad(Data data) {
    if (ended_) return;
    if (data.size() > HTTPTransfer::maximumBodySize - data_.size())
        return end(urlError(URLError::dataLengthExceedsMaximum));
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

/// The first call decides. The protocol is stopped and released before any handler runs: the
/// handler of its own inner load must no longer find it.
void URLSessionDataTask::end(std::exception_ptr error) {
    if (std::exchange(ended_, true)) return;
    error_ = std::move(error);
    Loop& loop = Loop::shared();
    loop.submit(completion_.of(shared_from_this()));
    if (loop.unschedule(timer_)) timeLimit_.drop();
    if (const auto protocol = std::exchange(protocol_, nullptr)) protocol->stopLoading();
}

void URLSessionDataTask::complete() {
    unfinished_.reset();
    const auto handler = std::exchange(handler_, nullptr);
    if (error_) return handler(std::nullopt, nullptr, error_);
    handler(std::move(data_), std::move(response_), nullptr);
}

}  // namespace kivo::platform
