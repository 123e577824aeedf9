#include <chrono>
#include <string>

#include "kivo/Kivo.h"

#if __has_include("kivo/platform/tasks/Loop.h") || __has_include("tests/support/Patience.h")
#error "a host sees more of the repository than the public headers"
#endif

KIVO_BUNDLE_IDENTIFIER("com.example.host")

#if defined(WITH_A_REQUEST_WITHOUT_A_NAME)
kivo::platform::Task<bool> authenticate(kivo::CoreRepository& repository) {
    co_return (co_await repository.authenticateSdk({"key"})).has_value();
}
#elif defined(WITH_A_REQUEST_WITH_A_NAME)
kivo::platform::Task<bool> authenticate(kivo::CoreRepository& repository) {
    const kivo::SdkAuthRequest request{"key"};
    co_return (co_await repository.authenticateSdk(request)).has_value();
}
#endif

int main() {
    const auto plugin = kivo::KivoSDK::initialise(kivo::KivoConfig{"api-key", false});
    plugin->onMessageReceived({{"notification", {{"title", "Hello"}}}});
    plugin->onMessageReceived({{"notification", {{"image", std::string("http://[")}}}});
    kivo::KivoSDK::waitUntilIdle(std::chrono::seconds(50));
    return plugin == kivo::KivoSDK::instance() ? 0 : 1;
}
