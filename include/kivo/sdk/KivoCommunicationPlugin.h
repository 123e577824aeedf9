#pragma once

#include <functional>
#include <optional>
#include <string>

#include "kivo/platform/Export.h"
#include "kivo/sdk/KivoConfig.h"
#include "kivo/sdk/RemoteMessage.h"

namespace kivo {

/// What the host may ask of the framework, from any thread. Every operation returns at once: its
/// work goes on in the background and ends in one printed line. Nothing throws and nothing is
/// reported back; where memory or threads cannot be had, in a forked child, and while the process
/// ends, the operation is dropped.
class KIVO_EXPORT KivoCommunicationPlugin {
public:
    virtual ~KivoCommunicationPlugin() = default;

    /// The plugin's own copy of the configuration. Changing it changes what is read back and
    /// nothing else: the configuration takes effect once, at initialisation.
    virtual KivoConfig config() const = 0;
    virtual void setConfig(KivoConfig config) = 0;
    /// Changes the copy in place; other threads wait while `change` runs.
    virtual void modifyConfig(const std::function<void(KivoConfig&)>& change) = 0;

    /// Says who the user is; what is absent is sent as empty text.
    virtual void setUser(std::optional<std::string> country, std::optional<std::string> phone,
                         std::optional<std::string> email,
                         std::optional<std::string> name) noexcept = 0;

    /// Hands over the device's push token.
    virtual void updateDeviceToken(std::string token) noexcept = 0;

    /// Hands over whether the user consents to notifications.
    virtual void setNotificationPermission(bool hasPermission) noexcept = 0;

    /// Fetches the image that an incoming notification names under "notification" / "image", once.
    virtual void onMessageReceived(const RemoteMessage& remoteMessage) noexcept = 0;

    /// Ends the user's session at the backend; what is stored on the device stays.
    virtual void unsetUser() noexcept = 0;
};

}  // namespace kivo
