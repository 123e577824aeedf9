#include "kivo/platform/http/HTTPURLProtocol.h"

#include <optional>
#include <utility>

#include "kivo/platform/http/HTTPRedirect.h"
#include "kivo/platform/http/Network.h"
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
    if (const auto error = refusal(request)) return fail(makeError(*error));

    auto ended = [self = self()](Result<HTTPReply> outcome) {
        try {
            self->transferEnded(std::move(outcome));
        } catch (...) {
            self->fail(currentError());
        }
    };
    transfer_ = std::make_shared<HTTPTransfer>(request, std::move(ended));
    Network::shared().start(transfer_);
}

void HTTPURLProtocol::transferEnded(Result<HTTPReply> outcome) {
    const auto transfer = std::exchange(transfer_, nullptr);
    if (!transfer) return;
    if (outcome.error) return fail(std::move(outcome.error));

    auto& reply = *outcome.value;
    const URLRequest& sent = transfer->request();
    const auto next = redirectedRequest(sent, reply.statusCode, reply.location);
    if (!next) return deliver(sent, std::move(reply));
    if (++redirects_ > maximumRedirects)
        return fail(makeError(URLError(URLError::httpTooManyRedirects)));
    send(*next);
}

void HTTPURLProtocol::deliver(const URLRequest& sent, HTTPReply reply) {
    client().urlProtocolDidReceive(
        std::make_shared<HTTPURLResponse>(sent.url(), reply.statusCode, reply.contentEncoding),
        CacheStoragePolicy::notAllowed);
    client().urlProtocolDidLoad(std::move(reply.body));
    client().urlProtocolDidFinishLoading();
}

void HTTPURLProtocol::fail(std::exception_ptr error) {
    client().urlProtocolDidFailWithError(std::move(error));
}

void HTTPURLProtocol::stopLoading() {
    if (const auto running = std::exchange(transfer_, nullptr)) Network::shared().cancel(*running);
}

std::shared_ptr<HTTPURLProtocol> HTTPURLProtocol::self() {
    return std::static_pointer_cast<HTTPURLProtocol>(shared_from_this());
}

}  // namespace kivo::platform
