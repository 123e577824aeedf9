#pragma once

#include <functional>
#include <optional>
#include <string>

#include "kivo/platform/Export.h"
#include "kivo/sdk/KivoConfig.h"
#include "kivo/sdk/RemoteMessage.h"

namespace kivo {

/// The host's interface to the framework, callable on any thread. Every operation returns at once:
/// it runs in the background and ends with one printed line. An operation neither throws nor
/// reports anything back; it is dropped if memory or threads run out, in a forked child, and while
/// the process exits.
///
/// Operations have no order among themselves: one that needs the user belongs after the outcome of
/// `setUser`. An operation whose reply does not come, or whose token cannot be renewed, fails with
/// "The request timed out." 30 s after it began; a re-authentication within it has 30 s of its own.
class KIVO_EXPORT KivoCommunicationPlugin {
public:
    virtual ~KivoCommunicationPlugin() = default;

    /// The plugin's own copy of the configuration. Changing it affects only what is read back: the
    /// configuration takes effect once, at initialisation.
    virtual KivoConfig config() const = 0;
    virtual void setConfig(KivoConfig config) = 0;
    /// Changes the copy in place; other threads wait while `change` runs. What it throws is passed
    /// on, and what it has changed stays.
    virtual void modifyConfig(const std::function<void(KivoConfig&)>& change) = 0;

    /// Authenticates the user; an absent value is sent as an empty string.
    virtual void setUser(std::optional<std::string> country, std::optional<std::string> phone,
                         std::optional<std::string> email,
                         std::optional<std::string> name) noexcept = 0;

    /// Sends the device's push token.
    virtual void updateDeviceToken(std::string token) noexcept = 0;

    /// Sends whether the user consents to notifications.
    virtual void setNotificationPermission(bool hasPermission) noexcept = 0;

    /// Loads, once, the image URL that an incoming notification holds under "notification" /
    /// "image".
    virtual void onMessageReceived(const RemoteMessage& remoteMessage) noexcept = 0;

    /// Ends the user's session at the backend; everything stored on the device stays.
    virtual void unsetUser() noexcept = 0;
};

}  // namespace kivo
