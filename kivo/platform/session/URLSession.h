#pragma once

#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include "kivo/platform/Task.h"
#include "kivo/platform/session/URLSessionDataTask.h"
#include "kivo/platform/url/URLProtocol.h"

namespace kivo::platform {

struct URLSessionConfiguration {
    /// Asked in order. A request that none of them accepts is served by the built-in HTTP protocol.
    std::vector<URLProtocolClass> protocolClasses;
    /// How long a transfer of the built-in protocol may be idle, unless its request sets less.
    std::chrono::milliseconds timeoutIntervalForRequest = std::chrono::seconds(60);
    /// How long a whole load may take from `resume()` on, with or without activity.
    std::chrono::milliseconds timeoutIntervalForResource = std::chrono::hours(7 * 24);
};

/// Creates tasks that load requests through the protocols of its configuration. Completion handlers
/// run one at a time, on the loop. Any thread may call. A session may be destroyed before its tasks
/// have ended.
class URLSession {
public:
    using CompletionHandler = URLSessionDataTask::CompletionHandler;
    using DataAndResponse = std::pair<Data, std::shared_ptr<const URLResponse>>;

    explicit URLSession(URLSessionConfiguration configuration);

    /// The process's own plain session.
    static URLSession& shared();

    /// A task that has not begun: `resume()` begins it. The session keeps it until it has ended.
    std::shared_ptr<URLSessionDataTask> dataTask(URLRequest request,
                                                 CompletionHandler handler) const;

    /// Loads `request`. Throws the load's error, or "There was a bad response from the server." if
    /// no response came.
    Task<DataAndResponse> data(URLRequest request) const;

private:
    std::shared_ptr<const URLSessionConfiguration> configuration_;
};

}  // namespace kivo::platform
