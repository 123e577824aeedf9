#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>

#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/http/TimerQueue.h"
#include "kivo/platform/tasks/OperationQueue.h"
#include "kivo/platform/tasks/TaskPool+Scopes.h"
#include "kivo/platform/url/URLProtocol.h"

namespace kivo::platform {

struct URLSessionConfiguration;

/// One load of a session, and the client of the protocol that serves it. It owns the protocol
/// object until the load has ended: by the protocol's first terminal call, by the session's time
/// limit, or by `cancel()`.
class URLSessionDataTask final : public URLProtocolClient,
                                 public std::enable_shared_from_this<URLSessionDataTask> {
public:
    /// Receives either the data, which may be empty, and the response, or only the error.
    using CompletionHandler =
        std::function<void(std::optional<Data> data, std::shared_ptr<const URLResponse> response,
                           std::exception_ptr error)>;

    URLSessionDataTask(std::shared_ptr<const URLSessionConfiguration> configuration,
                       std::shared_ptr<OperationQueue> delegateQueue, URLRequest request,
                       CompletionHandler handler);

    /// Starts the load and its time limit; a second call does nothing. The handler later runs once,
    /// on the session's queue. Throws std::bad_alloc or std::system_error if memory or threads run
    /// out; the load has then not started.
    void resume();

    /// Ends the load with "cancelled" (-999) unless it has ended already.
    void cancel();

    void urlProtocolDidReceive(std::shared_ptr<const URLResponse> response,
                               CacheStoragePolicy policy) override;
    void urlProtocolDidLoad(Data data) override;
    void urlProtocolDidFinishLoading() override;
    void urlProtocolDidFailWithError(std::exception_ptr error) override;

private:
    TimerQueue::Timer scheduleTimeLimit();
    void startLoading();
    std::shared_ptr<URLProtocol> makeProtocol();
    bool adopt(const std::shared_ptr<URLProtocol>& protocol);
    bool hasEnded();
    void end(std::exception_ptr error);
    void complete();

    Step<URLSessionDataTask> start_{&URLSessionDataTask::startLoading};
    Step<URLSessionDataTask> completion_{&URLSessionDataTask::complete};

    const std::shared_ptr<const URLSessionConfiguration> configuration_;
    const std::shared_ptr<OperationQueue> delegateQueue_;
    URLRequest request_;  // Until the protocol takes it.
    CompletionHandler handler_;

    Mutex mutex_;  // A protocol, a time limit and a caller may end the load at once.
    bool resumed_ KIVO_GUARDED_BY(mutex_) = false;
    bool ended_ KIVO_GUARDED_BY(mutex_) = false;
    std::optional<TaskPool::Activity> unfinished_ KIVO_GUARDED_BY(mutex_);
    std::optional<TimerQueue::Timer> timeLimit_ KIVO_GUARDED_BY(mutex_);
    std::shared_ptr<URLProtocol> protocol_ KIVO_GUARDED_BY(mutex_);
    std::shared_ptr<const URLResponse> response_ KIVO_GUARDED_BY(mutex_);
    Data data_ KIVO_GUARDED_BY(mutex_);
    std::exception_ptr error_ KIVO_GUARDED_BY(mutex_);
};

}  // namespace kivo::platform
