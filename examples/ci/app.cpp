// An application to be tested: it tells the backend its user and its device token, and ends.

#include <chrono>
#include <optional>

#include "kivo/Kivo.h"

KIVO_BUNDLE_IDENTIFIER("com.example.app")

int main() {
    const auto plugin = kivo::KivoSDK::initialise({.apiKey = "my-api-key", .isProduction = false});
    kivo::KivoSDK::waitUntilIdle(std::chrono::minutes(1));
    plugin->setUser("40", std::nullopt, "ana@example.com", "Ana");
    kivo::KivoSDK::waitUntilIdle(std::chrono::minutes(1));  // The call below needs the user.
    plugin->updateDeviceToken("push-token");
    kivo::KivoSDK::waitUntilIdle(std::chrono::minutes(1));
}
