#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "kivo/platform/base/Result.h"
#include "kivo/platform/http/HeaderLines.h"
#include "kivo/platform/tasks/Work.h"
#include "kivo/platform/url/URLRequest.h"

namespace kivo::platform {

/// What an HTTP server answered to one request, redirects not followed.
struct HTTPReply {
    int statusCode;
    Data body;             ///< Empty when the request discards it.
    std::string location;  ///< Where a redirect points, absolute; empty for other replies.
};

/// One HTTP exchange: a request as libcurl's options, and the reply as it arrives. The network
/// thread configures, performs and concludes it. Its completion handler runs once on the pool, or
/// never if the transfer is cancelled.
class HTTPTransfer {
public:
    using Completion = std::function<void(Result<HTTPReply>)>;

    /// Bodies beyond this end the transfer with -1103, unless the request discards them.
    static constexpr std::size_t maximumBodySize = 16U << 20U;

    HTTPTransfer(URLRequest request, Completion completion);

    const URLRequest& request() const { return request_; }

    /// The server that is addressed, as "host:port".
    const std::string& host() const { return host_; }

    /// Sets the options that all exchanges share, once for each handle. Throws std::bad_alloc,
    /// which leaves the handle unusable.
    static void prepare(CURL* easy);

    /// Sets up a prepared handle for this exchange, whatever it was used for before. It shares TLS
    /// connections only within `generation`. Throws std::bad_alloc, after which the handle can be
    /// configured again.
    void configure(CURL* easy, unsigned generation);

    /// What it was configured with.
    unsigned generation() const { return generation_; }

    /// The outcome if memory runs out, created at the first call.
    static const std::exception_ptr& lackOfMemory();

    /// Takes the outcome from `easy`. If memory runs out, that is the outcome.
    void conclude(CURL* easy, CURLcode code);

    /// Whether it has connected, so that others need no longer wait to share its connection.
    bool isConnected() const { return isConnected_; }

    /// Whether the reply came over a connection that several transfers share.
    bool isMultiplexed() const { return isMultiplexed_; }

    /// Hands the outcome over, on the pool.
    Step<HTTPTransfer> completing{&HTTPTransfer::complete};

private:
    void complete();
    void configureMethod(CURL* easy) const;
    void configureHeaders(CURL* easy);
    bool receive(const char* bytes, std::size_t count);

    URLRequest request_;
    std::string host_;
    unsigned generation_ = 0;
    Completion completion_;
    HeaderLines headers_;
    Data body_;
    bool bodyIsTooLarge_ = false;
    bool isConnected_ = false;
    bool isMultiplexed_ = false;
    Result<HTTPReply> outcome_;
};

}  // namespace kivo::platform
