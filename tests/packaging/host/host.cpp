#include <chrono>

#include "kivo/platform/Bundle.h"
#include "kivo/platform/TaskPool.h"
#include "kivo/sdk/KivoSDK.h"

KIVO_BUNDLE_IDENTIFIER("com.example.host")

int main() {
    const auto plugin = kivo::KivoSDK::initialise(kivo::KivoConfig{"api-key", false});
    plugin->onMessageReceived({{"notification", {{"title", "Hello"}}}});
    kivo::platform::TaskPool::shared().waitUntilIdle(std::chrono::seconds(50));
    return plugin == kivo::KivoSDK::instance() ? 0 : 1;
}
