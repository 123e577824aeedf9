#pragma once

#include <memory>
#include <optional>
#include <string>

#include "kivo/platform/Task.h"
#include "kivo/platform/session/URLSession.h"

namespace kivo {

/// The protocol that serves every backend request. It adds the identity headers and the bearer
/// token for the endpoint, sends the request on the shared session and relays the answer. A 401 is
/// not relayed: it starts a token refresh and a resend, without limit. There are two exceptions: a
/// user authentication is sent once more with a new merchant token, and that answer is relayed
/// whatever it says; a 401 to a request without a token is dropped. Each load has an interceptor of
/// its own and owns it until the load ends, which is what stops an endless refresh.
class AuthInterceptor final : public platform::URLProtocol {
public:
    static bool canInit(const platform::URLRequest& request);
    static platform::URLRequest canonicalRequest(const platform::URLRequest& request);

    AuthInterceptor(platform::URLRequest request, const platform::CachedURLResponse* cachedResponse,
                    std::shared_ptr<platform::URLProtocolClient> client);

    void startLoading() override;
    void stopLoading() override;

private:
    using URLRequest = platform::URLRequest;
    using DataAndResponse = platform::URLSession::DataAndResponse;

    platform::Task<void> load();
    platform::Task<void> loadUserAuthentication(URLRequest request);
    platform::Task<void> loadWithUserToken(URLRequest request);
    platform::Task<DataAndResponse> refreshTempToken(URLRequest request);
    platform::Task<void> refreshJwtTokenAndRetry(URLRequest request);

    void addIdentity(URLRequest& request) const;
    void sendRequest(URLRequest request, const std::string& token);
    void relay(const URLRequest& sent, const std::string& token, std::optional<platform::Data> data,
               std::shared_ptr<const platform::URLResponse> response);
    std::shared_ptr<AuthInterceptor> self();

    int retryCounter_ = 0;
    const std::string deviceId_;
    std::shared_ptr<platform::URLSessionDataTask> dataTask_;
};

}  // namespace kivo
