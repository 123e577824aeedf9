#include "tests/framework/FrameworkTest.h"

#include <cstdlib>
#include <string_view>

#include "kivo/network/BaseURLs.h"
#include "kivo/platform/Bundle.h"
#include "kivo/platform/TaskPool.h"
#include "tests/support/Patience.h"

namespace kivo::tests {

namespace {

std::string hostOf(std::string_view baseUrl) {
    const auto host = baseUrl.substr(std::string_view("https://").size());
    return std::string(host.substr(0, host.find_first_of(":/")));
}

void setVariable(const char* name, const std::string& value) { setenv(name, value.c_str(), 1); }

}  // namespace

/// The output is never destroyed: background work may still print.
FrameworkTest::FrameworkTest()
    : backend_(home_.path(), {hostOf(productionBaseUrl)}), output_(*new Output) {
    static bool used = false;
    if (std::exchange(used, true)) ADD_FAILURE() << "run through ctest: one process for each test";

    setVariable("HOME", home_.path());
    setVariable("XDG_STATE_HOME", home_.path() / "state");
    setVariable("XDG_DATA_HOME", home_.path() / "data");
    setVariable("SSL_CERT_FILE", backend_.trustFile());
    setVariable("https_proxy", backend_.proxyUrl());
    for (const char* name : {"no_proxy", "NO_PROXY", "http_proxy", "all_proxy", "ALL_PROXY"})
        unsetenv(name);
    platform::Bundle::setMainIdentifier("com.example.tests");
}

KivoCommunicationPlugin& FrameworkTest::plugin() {
    if (!KivoSDK::instance()) {
        backend_.answer("sdk/authenticate", merchantReply("m-1", "s-1"));
        KivoSDK::initialise({.apiKey = "key", .isProduction = isProduction});
        output_.awaitLine("SDK Initialized successfully: ");
    }
    return *KivoSDK::instance();
}

KivoCommunicationPlugin& FrameworkTest::pluginWithUser(const std::string& userToken) {
    backend_.answer("user/authenticate", userReply(userToken));
    plugin().setUser("40", "711", "ana@example.com", "Ana");
    output_.awaitLine("setUser successfully: ");
    return plugin();
}

void FrameworkTest::settle() { EXPECT_TRUE(platform::TaskPool::shared().waitUntilIdle(patience)); }

}  // namespace kivo::tests
