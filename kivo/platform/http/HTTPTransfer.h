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

/// One HTTP exchange: a request as libcurl's options, and the reply as it comes in. It is
/// configured, carried and concluded on the network thread; its completion handler runs on the
/// pool, once, or never after a cancel.
class HTTPTransfer {
public:
    using Completion = std::function<void(Result<HTTPReply>)>;

    /// Bodies beyond this end the transfer with -1103, unless the request discards them.
    static constexpr std::size_t maximumBodySize = 16U << 20U;

    HTTPTransfer(URLRequest request, Completion completion);

    const URLRequest& request() const { return request_; }

    /// The server that is asked, as "host:port".
    const std::string& host() const { return host_; }

    /// Sets what every exchange has in common, once for each handle. Throws std::bad_alloc: the
    /// handle is then of no use.
    static void prepare(CURL* easy);

    /// Sets a prepared handle up for this exchange, whatever it was used for before. `generation`
    /// sets apart the TLS connections that it may share. Throws std::bad_alloc: the handle can then
    /// be configured anew.
    void configure(CURL* easy, unsigned generation);

    /// What it was configured with.
    unsigned generation() const { return generation_; }

    /// The outcome where there is no memory for another, made at the first call.
    static const std::exception_ptr& lackOfMemory();

    /// Takes the outcome out of `easy`. Never fails for want of memory.
    void conclude(CURL* easy, CURLcode code);

    /// Whether it has had a connection, so that others need not wait to share one.
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
