#pragma once

#include <optional>
#include <string>

#include "kivo/platform/Data.h"

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
    static std::optional<platform::Data> readFromKeychain(const std::string& service,
                                                          const std::string& account);
    static void saveToKeychain(const platform::Data& data, const std::string& service,
                               const std::string& account);

    // The service speaks of an access token, but existing installations are found by this name.
    const std::string serviceName_ = "kivo-access-token-service";
    const std::string accountName_ = "kivo-device-auth-account";
};

}  // namespace kivo
