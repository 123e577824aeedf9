#pragma once

#include <exception>
#include <memory>
#include <utility>

#include "kivo/platform/base/Data.h"
#include "kivo/platform/url/URLRequest.h"
#include "kivo/platform/url/URLResponse.h"

namespace kivo::platform {

/// A reply kept from earlier. Sessions keep none yet, so a protocol is always given a null pointer.
class CachedURLResponse;

enum class CacheStoragePolicy { allowed, allowedInMemoryOnly, notAllowed };

/// Where a protocol delivers its load: the loading system's side. Callable from any thread and in
/// any order; chunks of data append; the first terminal call (finish or failure) decides, and
/// everything after it is ignored.
class URLProtocolClient {
public:
    virtual ~URLProtocolClient() = default;

    virtual void urlProtocolDidReceive(std::shared_ptr<const URLResponse> response,
                                       CacheStoragePolicy policy) = 0;
    virtual void urlProtocolDidLoad(Data data) = 0;
    virtual void urlProtocolDidFinishLoading() = 0;
    virtual void urlProtocolDidFailWithError(std::exception_ptr error) = 0;
};

/// One way of serving a request. A fresh object is made for each load, off the caller's thread; the
/// load owns it until it has ended.
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

    /// Begins the load. Called at most once, and perhaps after `stopLoading`: there is nothing left
    /// to begin then.
    virtual void startLoading() = 0;

    /// Ends what is still going on. Called after the end of the load, on any thread, perhaps while
    /// `startLoading` runs. An object that was made too late, when its load had ended, gets neither
    /// call.
    virtual void stopLoading() = 0;

private:
    URLRequest request_;
    const CachedURLResponse* cachedResponse_;
    std::shared_ptr<URLProtocolClient> client_;
};

/// A protocol class as a session's configuration names it.
struct URLProtocolClass {
    bool (*canInit)(const URLRequest& request);
    URLRequest (*canonicalRequest)(const URLRequest& request);
    std::shared_ptr<URLProtocol> (*make)(URLRequest request,
                                         const CachedURLResponse* cachedResponse,
                                         std::shared_ptr<URLProtocolClient> client);
};

/// The class entry of `Protocol`, which has static `canInit` and `canonicalRequest` and a
/// protocol's constructor.
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
