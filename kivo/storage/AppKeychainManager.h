#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "kivo/platform/base/Data.h"

namespace kivo {

/// The stable identifier of this installation, created on first use and stored in the keychain. The
/// manager holds nothing itself: every call asks the keychain. Any thread may call; on the loop a
/// new identifier is used at once and stored by the helper.
class AppKeychainManager {
public:
    /// The stored identifier, in any format, if it is UTF-8; otherwise a new one, which is stored
    /// unless an item exists already. If it cannot be stored, one line is printed, and the next
    /// call creates another.
    std::string getDeviceIdentifier() const;

    /// Has the keychain asked again before anything that is launched from now on runs, unless it is
    /// known to hold what it held; returns whether it has.
    bool lookAhead() const;

private:
    static std::optional<platform::Data> readFromKeychain(std::string_view service,
                                                          std::string_view account);
    static void saveToKeychain(std::string_view data, std::string_view service,
                               std::string_view account);

    // No access token is stored here, but existing installations are found under this name.
    static constexpr std::string_view serviceName = "kivo-access-token-service";
    static constexpr std::string_view accountName = "kivo-device-auth-account";
};

}  // namespace kivo
