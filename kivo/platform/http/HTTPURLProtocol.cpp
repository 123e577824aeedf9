#include "kivo/platform/http/HTTPURLProtocol.h"

#include <optional>
#include <utility>

#include "kivo/platform/http/HTTPRedirect.h"
#include "kivo/platform/http/NetworkThread.h"
#include "kivo/platform/url/URLError.h"

namespace kivo::platform {

namespace {

/// The reason why `request` cannot be sent, or nothing.
std::optional<URLError> refusal(const URLRequest& request) {
    if (!HTTPURLProtocol::canInit(request)) return URLError(URLError::unsupportedURL);
    if (request.url().host().empty() || !isHTTPToken(request.httpMethod()))
        return URLError(URLError::badURL);
    return std::nullopt;
}

}  // namespace

bool HTTPURLProtocol::canInit(const URLRequest& request) {
    const auto scheme = request.url().scheme();
    return scheme == "http" || scheme == "https";
}

void HTTPURLProtocol::send(const URLRequest& request) {
    if (const auto error = refusal(request)) return fail(std::make_exception_ptr(*error));

    auto ended = [self = self()](Result<HTTPReply> outcome) {
        try {
            self->transferEnded(std::move(outcome));
        } catch (...) {
            self->fail(std::current_exception());
        }
    };
    auto transfer = std::make_shared<HTTPTransfer>(request, std::move(ended));
    const Lock lock(mutex_);
    if (stopped_) return;
    NetworkThread::shared().start(transfer);
    transfer_ = std::move(transfer);
}

void HTTPURLProtocol::transferEnded(Result<HTTPReply> outcome) {
    const auto transfer = takeTransfer();
    if (!transfer) return;
    if (auto* error = std::get_if<std::exception_ptr>(&outcome)) return fail(*error);

    auto& reply = std::get<HTTPReply>(outcome);
    const URLRequest& sent = transfer->request();
    const auto next = redirectedRequest(sent, reply.statusCode, reply.location);
    if (!next) return deliver(sent, std::move(reply));
    if (++redirects_ > maximumRedirects)
        return fail(std::make_exception_ptr(URLError(URLError::httpTooManyRedirects)));
    send(*next);
}

void HTTPURLProtocol::deliver(const URLRequest& sent, HTTPReply reply) {
    client().urlProtocolDidReceive(std::make_shared<HTTPURLResponse>(sent.url(), reply.statusCode),
                                   CacheStoragePolicy::notAllowed);
    client().urlProtocolDidLoad(std::move(reply.body));
    client().urlProtocolDidFinishLoading();
}

void HTTPURLProtocol::fail(std::exception_ptr error) {
    client().urlProtocolDidFailWithError(std::move(error));
}

/// Hands the running transfer, if there is one, over to the caller.
std::shared_ptr<HTTPTransfer> HTTPURLProtocol::takeTransfer() {
    const Lock lock(mutex_);
    return std::exchange(transfer_, nullptr);
}

void HTTPURLProtocol::stopLoading() {
    {
        const Lock lock(mutex_);
        stopped_ = true;
    }
    if (auto running = takeTransfer()) NetworkThread::shared().cancel(std::move(running));
}

std::shared_ptr<HTTPURLProtocol> HTTPURLProtocol::self() {
    return std::static_pointer_cast<HTTPURLProtocol>(shared_from_this());
}

}  // namespace kivo::platform
