#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "kivo/platform/base/Data.h"

namespace kivo {

/// The stable identifier of this installation, made on first use and kept in the keychain. It holds
/// nothing itself: every call asks the keychain, from any thread.
class AppKeychainManager {
public:
    /// The stored identifier, whatever its format, or a new one, which is stored. Never fails: an
    /// identifier that cannot be stored prints one line, is returned all the same, and is
    /// forgotten.
    std::string getDeviceIdentifier() const;

private:
    static std::optional<platform::Data> readFromKeychain(std::string_view service,
                                                          std::string_view account);
    static void saveToKeychain(std::string_view data, std::string_view service,
                               std::string_view account);

    // The service speaks of an access token, but existing installations are found by this name.
    static constexpr std::string_view serviceName = "kivo-access-token-service";
    static constexpr std::string_view accountName = "kivo-device-auth-account";
};

}  // namespace kivo
