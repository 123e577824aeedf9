#pragma once

#include <memory>

#include "kivo/platform/http/HTTPTransfer.h"
#include "kivo/platform/url/URLProtocol.h"

namespace kivo::platform {

/// The built-in protocol: serves http and https and follows redirects. It delivers a reply as a
/// whole, the response first, so a transfer that fails delivers nothing. Only for the loop.
class HTTPURLProtocol final : public URLProtocol {
public:
    using URLProtocol::URLProtocol;

    static bool canInit(const URLRequest& request);
    static URLRequest canonicalRequest(const URLRequest& request) { return request; }

    void startLoading() override { send(request()); }
    void stopLoading() override;

private:
    void send(const URLRequest& request);
    void transferEnded(Result<HTTPReply> outcome);
    void deliver(const URLRequest& sent, HTTPReply reply);
    void fail(std::exception_ptr error);
    std::shared_ptr<HTTPURLProtocol> self();

    int redirects_ = 0;
    std::shared_ptr<HTTPTransfer> transfer_;
};

}  // namespace kivo::platform
