#include "kivo/api/CoreRepository.h"

#include <utility>

#include "kivo/network/NetworkClient.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/Continuation.h"
#include "kivo/platform/tasks/OnLoop.h"
#include "kivo/storage/AppKeychainManager.h"
#include "kivo/storage/CacheManager.h"

namespace kivo {

namespace {

/// One backend operation: its name in diagnostics, its method and path, and its reply's payload.
template <typename Payload>
struct Endpoint {
    const char* operation;
    const char* method;
    const char* path;
};

constexpr Endpoint<SdkAuthData> sdkAuthenticate{.operation = "authenticateSdk(authRequest:)",
                                                .method = "POST",
                                                .path = "api/communication/sdk/authenticate"};
constexpr Endpoint<AuthUserResponseData> userAuthenticate{
    .operation = "authenticateUser(authUserRequest:)",
    .method = "POST",
    .path = "api/communication/user/authenticate"};
constexpr Endpoint<DeviceTokenSubmitResponse> userDeviceToken{
    .operation = "updatedeviceToken(deviceToken:)",
    .method = "POST",
    .path = "api/communication/user/update-device-token"};
constexpr Endpoint<DeviceTokenSubmitResponse> userConsent{
    .operation = "updateNotificationPermission(hasPermission:)",
    .method = "POST",
    .path = "api/communication/user/update-notification-consent"};
constexpr Endpoint<UnsetUserResponseData> userUnset{
    .operation = "unsetUser(sessionId:)", .method = "PUT", .path = "api/communication/user/unset"};

/// Whether an operation can go on where it is: on the loop, with the device identifier known. The
/// helper reads the store and the keychain from disk, not the caller's thread.
bool isReadyHere() {
    if (!platform::Process::isUsable()) return false;
    CacheManager::instance();
    return !AppKeychainManager().lookAhead() && platform::Loop::isCurrent();
}

template <typename Payload>
CoreRepository::Reply<Payload> send(Endpoint<Payload> endpoint,
                                    std::optional<NetworkClient::Parameters> parameters) {
    if (!isReadyHere()) co_await platform::OnLoop();

    using Envelope = std::optional<ApiResponse<Payload>>;
    auto start = [&](const platform::CheckedContinuation<Envelope>& continuation) {
        NetworkClient::instance().request<ApiResponse<Payload>>(
            endpoint.path, endpoint.method, parameters,
            [continuation](platform::Result<ApiResponse<Payload>> result) {
                continuation.resume(platform::widened(std::move(result)));
            });
    };
    co_return co_await platform::withCheckedThrowingContinuation<Envelope>(endpoint.operation,
                                                                           start);
}

struct Member {
    const char* name;
    std::string text;
};

template <typename... Members>
NetworkClient::Parameters parameters(Members... members) {
    NetworkClient::Parameters all;
    (all.emplace(members.name, std::move(members.text)), ...);
    return all;
}

}  // namespace

auto CoreRepository::authenticateSdk(const SdkAuthRequest& authRequest) -> Reply<SdkAuthData> {
    return send(sdkAuthenticate, parameters(Member{"apiKey", authRequest.apiKey}));
}

/// All four keys are always sent: on the wire, unlike in the stored record, an absent field is an
/// empty string.
auto CoreRepository::authenticateUser(const UserAuthRequest& authUserRequest)
    -> Reply<AuthUserResponseData> {
    return send(userAuthenticate,
                parameters(Member{"countryCode", authUserRequest.countryCode.value_or("")},
                           Member{"phone", authUserRequest.phone.value_or("")},
                           Member{"email", authUserRequest.email.value_or("")},
                           Member{"name", authUserRequest.name.value_or("")}));
}

auto CoreRepository::updatedeviceToken(std::string deviceToken)
    -> Reply<DeviceTokenSubmitResponse> {
    return send(userDeviceToken, parameters(Member{"deviceToken", std::move(deviceToken)}));
}

auto CoreRepository::updateNotificationPermission(bool hasPermission)
    -> Reply<DeviceTokenSubmitResponse> {
    return send(userConsent,
                parameters(Member{"permission", hasPermission ? "GRANTED" : "DENIED"}));
}

auto CoreRepository::unsetUser(std::string sessionId) -> Reply<UnsetUserResponseData> {
    return send(userUnset, parameters(Member{"sessionId", std::move(sessionId)}));
}

}  // namespace kivo
