#include <chrono>

#include "kivo/Kivo.h"

#if __has_include("kivo/platform/tasks/TaskPool.h") || __has_include("tests/support/Patience.h")
#error "a host sees more of the repository than the public headers"
#endif

KIVO_BUNDLE_IDENTIFIER("com.example.host")

int main() {
    const auto plugin = kivo::KivoSDK::initialise(kivo::KivoConfig{"api-key", false});
    plugin->onMessageReceived({{"notification", {{"title", "Hello"}}}});
    kivo::KivoSDK::waitUntilIdle(std::chrono::seconds(50));
    return plugin == kivo::KivoSDK::instance() ? 0 : 1;
}
