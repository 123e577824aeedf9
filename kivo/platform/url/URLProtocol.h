#pragma once

#include <exception>
#include <memory>
#include <utility>

#include "kivo/platform/base/Data.h"
#include "kivo/platform/url/URLRequest.h"
#include "kivo/platform/url/URLResponse.h"

namespace kivo::platform {

/// A cached reply. Only the modelled platform has a cache: the pointer that a protocol gets is
/// always null.
class CachedURLResponse;

/// Whether a reply may be cached. Only the modelled platform has a cache: the value is ignored.
enum class CacheStoragePolicy { allowed, allowedInMemoryOnly, notAllowed };

/// The receiver of a protocol's load. Called on the loop, in any order; chunks of data are
/// appended. The first terminal call (finish or failure) decides the outcome, and every later call
/// is ignored.
class URLProtocolClient {
public:
    virtual ~URLProtocolClient() = default;

    virtual void urlProtocolDidReceive(std::shared_ptr<const URLResponse> response,
                                       CacheStoragePolicy policy) = 0;
    virtual void urlProtocolDidLoad(Data data) = 0;
    virtual void urlProtocolDidFinishLoading() = 0;
    virtual void urlProtocolDidFailWithError(std::exception_ptr error) = 0;
};

/// One way of serving a request. Each load creates an object of its own, on the loop, and owns it
/// until the load has ended.
class URLProtocol : public std::enable_shared_from_this<URLProtocol> {
public:
    URLProtocol(URLRequest request, const CachedURLResponse* cachedResponse,
                std::shared_ptr<URLProtocolClient> client)
        : request_(std::move(request)),
          cachedResponse_(cachedResponse),
          client_(std::move(client)) {}
    virtual ~URLProtocol() = default;
    URLProtocol(const URLProtocol&) = delete;
    URLProtocol& operator=(const URLProtocol&) = delete;

    const URLRequest& request() const { return request_; }
    const CachedURLResponse* cachedResponse() const { return cachedResponse_; }
    URLProtocolClient& client() const { return *client_; }

    /// Starts the load. Called at most once, on the loop.
    virtual void startLoading() = 0;

    /// Ends whatever is still running. Called on the loop once the load has ended, possibly from
    /// within `startLoading`.
    virtual void stopLoading() = 0;

private:
    URLRequest request_;
    const CachedURLResponse* cachedResponse_;
    std::shared_ptr<URLProtocolClient> client_;
};

/// A protocol class, as listed in a session's configuration.
struct URLProtocolClass {
    bool (*canInit)(const URLRequest& request);
    URLRequest (*canonicalRequest)(const URLRequest& request);
    std::shared_ptr<URLProtocol> (*make)(URLRequest request,
                                         const CachedURLResponse* cachedResponse,
                                         std::shared_ptr<URLProtocolClient> client);
};

/// The entry for `Protocol`, which has static functions `canInit` and `canonicalRequest` and the
/// constructor of `URLProtocol`.
template <typename Protocol>
constexpr URLProtocolClass protocolClass() {
    return {.canInit = &Protocol::canInit,
            .canonicalRequest = &Protocol::canonicalRequest,
            .make = [](URLRequest request, const CachedURLResponse* cachedResponse,
                       std::shared_ptr<URLProtocolClient> client) -> std::shared_ptr<URLProtocol> {
                return std::make_shared<Protocol>(std::move(request), cachedResponse,
                                                  std::move(client));
            }};
}

}  // namespace kivo::platform
