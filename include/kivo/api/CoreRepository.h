#pragma once

#include <optional>
#include <string>

#include "kivo/api/WireModels.h"
#include "kivo/platform/Export.h"
#include "kivo/platform/Task.h"

namespace kivo {

/// The backend's five operations. Nothing is sent until the returned task is awaited or launched.
/// The task returns the reply's envelope, whatever it says, or throws the network client's error
/// unchanged. Stateless: any number of operations may run at once, on any thread.
class KIVO_EXPORT CoreRepository {
public:
    /// A task that returns always holds an envelope.
    template <typename Payload>
    using Reply = platform::Task<std::optional<ApiResponse<Payload>>>;

    virtual Reply<SdkAuthData> authenticateSdk(const SdkAuthRequest& authRequest);
    virtual Reply<AuthUserResponseData> authenticateUser(const UserAuthRequest& authUserRequest);
    virtual Reply<DeviceTokenSubmitResponse> updatedeviceToken(std::string deviceToken);
    virtual Reply<DeviceTokenSubmitResponse> updateNotificationPermission(bool hasPermission);
    virtual Reply<UnsetUserResponseData> unsetUser(std::string sessionId);

    /// Give the request a name on the line above: g++ 12 destroys a temporary aggregate twice when
    /// it stands in one expression with co_await.
    Reply<SdkAuthData> authenticateSdk(SdkAuthRequest&& mustHaveAName) = delete;
    Reply<AuthUserResponseData> authenticateUser(UserAuthRequest&& mustHaveAName) = delete;

    CoreRepository() = default;
    virtual ~CoreRepository() = default;
    CoreRepository(const CoreRepository&) = delete;
    CoreRepository& operator=(const CoreRepository&) = delete;
};

}  // namespace kivo
