#include "kivo/network/AuthInterceptor.h"

#include <optional>
#include <utility>

#include "kivo/network/URLRequest+Token.h"
#include "kivo/platform/Bundle.h"
#include "kivo/platform/Console.h"
#include "kivo/platform/base/Description.h"
#include "kivo/platform/base/Error.h"
#include "kivo/platform/system/FatalError.h"
#include "kivo/storage/AppKeychainManager.h"
#include "kivo/storage/CacheManager.h"

namespace kivo {

using platform::Console;
using platform::Task;
using platform::URLRequest;
using platform::URLSession;

namespace {

constexpr int unauthorized = 401;
constexpr const char* nameTheApplication =
    "Kivo's first request needs the application's identifier: write "
    "KIVO_BUNDLE_IDENTIFIER(\"com.example.app\") in one of the application's source files.";

}  // namespace

bool AuthInterceptor::canInit(const URLRequest& /*request*/) { return true; }

URLRequest AuthInterceptor::canonicalRequest(const URLRequest& request) { return request; }

AuthInterceptor::AuthInterceptor(URLRequest request,
                                 const platform::CachedURLResponse* cachedResponse,
                                 std::shared_ptr<platform::URLProtocolClient> client)
    : URLProtocol(std::move(request), cachedResponse, std::move(client)),
      deviceId_(AppKeychainManager().getDeviceIdentifier()) {}

void AuthInterceptor::startLoading() { platform::launch(shared_from_this(), load()); }

void AuthInterceptor::stopLoading() {
    if (dataTask_) dataTask_->cancel();
}

Task<void> AuthInterceptor::load() {
    URLRequest request = this->request();
    addIdentity(request);
    const std::string& url = request.url().absoluteString();
    if (url.ends_with("sdk/authenticate")) {
        sendRequest(std::move(request), "");
    } else if (url.ends_with("user/authenticate")) {
        co_await loadUserAuthentication(std::move(request));
    } else {
        co_await loadWithUserToken(std::move(request));
    }
}

/// The headers are read once for each load: a resend keeps the first request's session id.
void AuthInterceptor::addIdentity(URLRequest& request) const {
    request.addValue("application/json", "Content-Type");
    request.addValue("1.0.0", "x-sdk-version");
    request.addValue("IOS", "x-platform");
    request.addValue(platform::unwrap(platform::Bundle::mainIdentifier(), nameTheApplication),
                     "x-package-name");
    request.addValue(CacheManager::instance().getSessionId(), "x-session-id");
    request.addValue(deviceId_, "x-unique-device-id");
}

/// A failure is not reported to the client: the load then ends at its time limit.
Task<void> AuthInterceptor::loadUserAuthentication(URLRequest request) {
    try {
        auto fetch = refreshTempToken(std::move(request));
        auto [data, response] = co_await std::move(fetch);
        client().urlProtocolDidReceive(std::move(response),
                                       platform::CacheStoragePolicy::notAllowed);
        client().urlProtocolDidLoad(std::move(data));
        client().urlProtocolDidFinishLoading();
    } catch (const std::exception& error) {
        Console::print("Error during async operations: " + platform::describe(error));
    }
}

Task<void> AuthInterceptor::loadWithUserToken(URLRequest request) {
    std::string token = CacheManager::instance().getUserJwtToken();
    if (token.empty() && retryCounter_ < 1) {
        ++retryCounter_;
        try {
            token = co_await CacheManager::instance().reAuthUser();
        } catch (const std::exception& error) {
            Console::print("Error during async operations: " + platform::describe(error));
            co_return;
        }
    }
    retryCounter_ = 0;
    sendRequest(std::move(request), token);
}

Task<AuthInterceptor::DataAndResponse> AuthInterceptor::refreshTempToken(URLRequest request) {
    std::string token = CacheManager::instance().getMerchantJwtTokenTemp();
    // Printed in full, like every token.
    Console::print("temp-token >> " + token);
    if (token.empty()) token = co_await CacheManager::instance().reAuthSdk();

    const URLRequest first = newRequest(request, token);
    DataAndResponse answer = co_await URLSession::shared().data(first);
    if (platform::httpStatusCode(answer.second.get()) != unauthorized) co_return answer;

    token = co_await CacheManager::instance().reAuthSdk();
    const URLRequest second = newRequest(request, token);
    co_return co_await URLSession::shared().data(second);
}

void AuthInterceptor::sendRequest(URLRequest request, const std::string& token) {
    if (!token.empty()) request = newRequest(std::move(request), token);
    auto relayAnswer = [interceptor = std::weak_ptr(self()), sent = request, token](
                           auto data, auto response, auto /*error*/) {
        if (const auto alive = interceptor.lock())
            alive->relay(sent, token, std::move(data), std::move(response));
    };
    const auto task = URLSession::shared().dataTask(std::move(request), std::move(relayAnswer));
    dataTask_ = task;  // Before it starts, since its answer may replace it with a retry.
    task->resume();
}

/// Relays the data before the response, on purpose, and an error as a finish without either. A 401
/// to a request without a token is dropped: the load then ends at its time limit.
void AuthInterceptor::relay(const URLRequest& sent, const std::string& token,
                            std::optional<platform::Data> data,
                            std::shared_ptr<const platform::URLResponse> response) {
    if (platform::httpStatusCode(response.get()) == unauthorized) {
        const std::optional<std::string> url = sent.url().absoluteString();
        Console::print("here1>>>401 >> " + platform::describe(url));
        if (!token.empty()) platform::launch(shared_from_this(), refreshJwtTokenAndRetry(sent));
        return;
    }
    Console::print("here2>>>");
    if (data) client().urlProtocolDidLoad(*std::move(data));
    if (response)
        client().urlProtocolDidReceive(std::move(response),
                                       platform::CacheStoragePolicy::notAllowed);
    client().urlProtocolDidFinishLoading();
}

/// The request still carries the refused token; the new one is added beside it.
Task<void> AuthInterceptor::refreshJwtTokenAndRetry(URLRequest request) {
    try {
        const std::string token = co_await CacheManager::instance().reAuthUser();
        if (token.empty()) {
            Console::print("Refreshed token is empty, not retrying request.");
            co_return;
        }
        Console::print("Refreshed token found, retrying request. >>> " + token);
        sendRequest(std::move(request), token);
    } catch (const std::exception& error) {
        Console::print("Failed to refresh JWT token: " + platform::describe(error));
    }
}

std::shared_ptr<AuthInterceptor> AuthInterceptor::self() {
    return std::static_pointer_cast<AuthInterceptor>(shared_from_this());
}

}  // namespace kivo
