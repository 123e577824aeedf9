#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "kivo/platform/base/Result.h"
#include "kivo/platform/http/HeaderLines.h"
#include "kivo/platform/http/Transfers.h"
#include "kivo/platform/tasks/Work.h"
#include "kivo/platform/url/URLRequest.h"

namespace kivo::platform {

/// What an HTTP server answered to one request, redirects not followed.
struct HTTPReply {
    int statusCode;
    Data body;             ///< Empty when the request discards it.
    std::string location;  ///< Where a redirect points, absolute; empty for other replies.
    std::string contentEncoding;
};

/// One HTTP exchange: a request as libcurl's options, and the reply as it arrives. Only for the
/// loop. Its completion handler runs once, or never if the transfer is cancelled.
class HTTPTransfer : public Transfers::Entry {
public:
    using Completion = std::function<void(Result<HTTPReply>)>;

    /// Bodies beyond this end the transfer with -1103, unless the request discards them.
    static constexpr std::size_t maximumBodySize = 16U << 20U;

    HTTPTransfer(URLRequest request, Completion completion);

    const URLRequest& request() const { return request_; }

    /// Sets the options that all exchanges share, once for each handle. Throws std::bad_alloc,
    /// or a URLError for an option that libcurl refuses; both leave the handle unusable.
    static void prepare(CURL* handle);

    /// Sets up its handle, a prepared one, for this exchange, whatever it was used for before.
    /// Throws what `prepare` throws, after which the handle can be configured again.
    void configure();

    /// Whether, after a failure with `code`, it may be configured a second time, for a connection
    /// of its own. What a reused connection loses before a byte of the reply has come, libcurl
    /// sends again, except on a connection whose tunnel through a proxy is still being set up, or
    /// whose HTTP/2 session the server has just ended.
    bool mayBeginAgain(CURLcode code) const;

    /// The outcome if memory runs out, created at the first call.
    static const std::exception_ptr& outOfMemory();

    /// Takes the outcome from its handle; if memory runs out, or there is no handle, that is the
    /// outcome. Returns what the transfer taught about its host.
    Transfers::Ending conclude(CURLcode code);

    /// Takes `error` as the outcome.
    Transfers::Ending conclude(std::exception_ptr error);

    /// Whether its handle is as good as new. libcurl counts in it how often a reused connection was
    /// found dead, never resets the count, and fails at the sixth time.
    bool handleIsFit() const { return connections_ == 1 && attempts_ == 1; }

    /// Whether its bodies take megabytes.
    bool isLarge() const;

    /// Hands the outcome over.
    Step<HTTPTransfer> completing{&HTTPTransfer::complete};

    CURL* easy = nullptr;                ///< While it runs.
    std::shared_ptr<HTTPTransfer> kept;  ///< Itself, from its start to its end.

private:
    void complete();
    void configureMethod() const;
    void configureHeaders();
    bool receiveHeader(std::string_view line);
    bool receive(const char* bytes, std::size_t count);
    std::exception_ptr errorFor(CURLcode code) const;

    URLRequest request_;
    Completion completion_;
    HeaderLines headers_;
    Data body_;
    std::size_t headerSize_ = 0;
    bool headIsWhole_ = false;
    bool isTooLarge_ = false;
    int attempts_ = 0;
    int connections_ = 0;
    Result<HTTPReply> outcome_;
};

}  // namespace kivo::platform
