#pragma once

#include <optional>
#include <string>

#include "kivo/api/WireModels.h"
#include "kivo/platform/Export.h"
#include "kivo/platform/Task.h"

namespace kivo {

/// The backend's five operations. Each returns the reply's envelope, whatever it says, or throws
/// the error of the network client unchanged. Stateless: any number may run at once, from any
/// thread.
class KIVO_EXPORT CoreRepository {
public:
    /// The envelope is never absent when the operation returns.
    template <typename Payload>
    using Reply = platform::Task<std::optional<ApiResponse<Payload>>>;

    virtual Reply<SdkAuthData> authenticateSdk(SdkAuthRequest authRequest);
    virtual Reply<AuthUserResponseData> authenticateUser(UserAuthRequest authUserRequest);
    virtual Reply<DeviceTokenSubmitResponse> updatedeviceToken(std::string deviceToken);
    virtual Reply<DeviceTokenSubmitResponse> updateNotificationPermission(bool hasPermission);
    virtual Reply<UnsetUserResponseData> unsetUser(std::string sessionId);

    CoreRepository() = default;
    virtual ~CoreRepository() = default;
    CoreRepository(const CoreRepository&) = delete;
    CoreRepository& operator=(const CoreRepository&) = delete;
};

}  // namespace kivo
