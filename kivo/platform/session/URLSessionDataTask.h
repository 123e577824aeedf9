#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <optional>

#include "kivo/platform/tasks/Loop.h"
#include "kivo/platform/url/URLProtocol.h"

namespace kivo::platform {

struct URLSessionConfiguration;

/// One load of a session, and the client of the protocol that serves it. It owns the protocol
/// object until the load has ended: by the protocol's first terminal call, by the session's time
/// limit, or by `cancel()`. Any thread may resume and cancel; all else happens on the loop.
class URLSessionDataTask final : public URLProtocolClient,
                                 public std::enable_shared_from_this<URLSessionDataTask> {
public:
    /// Receives either the data, which may be empty, and the response, or only the error.
    using CompletionHandler =
        std::function<void(std::optional<Data> data, std::shared_ptr<const URLResponse> response,
                           std::exception_ptr error)>;

    URLSessionDataTask(std::shared_ptr<const URLSessionConfiguration> configuration,
                       URLRequest request, CompletionHandler handler);

    /// Starts the load and its time limit; a second call does nothing. The handler later runs once,
    /// on the loop. Throws std::bad_alloc or std::system_error if memory or threads run out; the
    /// load has then not started.
    void resume();

    /// Ends the load with "cancelled" (-999) unless it has ended already.
    void cancel();

    void urlProtocolDidReceive(std::shared_ptr<const URLResponse> response,
                               CacheStoragePolicy policy) override;
    void urlProtocolDidLoad(Data data) override;
    void urlProtocolDidFinishLoading() override;
    void urlProtocolDidFailWithError(std::exception_ptr error) override;

private:
    void start();
    void startLoading();
    std::shared_ptr<URLProtocol> makeProtocol();
    void cancelIfUnended();
    void timeOut();
    void end(std::exception_ptr error);
    void complete();

    Step<URLSessionDataTask> start_{&URLSessionDataTask::start};
    Step<URLSessionDataTask> cancel_{&URLSessionDataTask::cancelIfUnended};
    Step<URLSessionDataTask> timeLimit_{&URLSessionDataTask::timeOut};
    Step<URLSessionDataTask> completion_{&URLSessionDataTask::complete};
    Timer timer_{timeLimit_};
    std::atomic<bool> isResumed_{false};
    std::atomic<bool> isCancelled_{false};
    Loop::Clock::time_point resumedAt_;

    const std::shared_ptr<const URLSessionConfiguration> configuration_;
    URLRequest request_;  // Until the protocol takes it.
    CompletionHandler handler_;

    bool ended_ = false;
    std::optional<Loop::Activity> unfinished_;
    std::shared_ptr<URLProtocol> protocol_;
    std::shared_ptr<const URLResponse> response_;
    Data data_;
    std::exception_ptr error_;
};

}  // namespace kivo::platform
