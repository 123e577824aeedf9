#pragma once

#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "kivo/platform/Bundle.h"
#include "kivo/platform/Console.h"
#include "kivo/sdk/KivoSDK.h"
#include "kivo/storage/CacheManager.h"
#include "tests/framework/Lines.h"
#include "tests/support/Background.h"
#include "tests/support/ScriptedBackend.h"
#include "tests/support/TemporaryDirectory.h"

namespace kivo::tests {

inline CacheManager& store() { return CacheManager::instance(); }

/// The whole framework over real TLS: a home of its own, a scripted backend that stands in for both
/// base URLs (the library reaches it as its proxy), and the printed lines. Kivo's shared instances
/// live as long as the process, so every such test needs a process of its own; ctest gives it one.
class FrameworkTest : public testing::Test {
protected:
    FrameworkTest() {
        static bool used = false;
        if (std::exchange(used, true)) ADD_FAILURE() << "run through ctest: a process a test";
        set("HOME", home_.path());
        set("XDG_STATE_HOME", home_.path() / "state");
        set("XDG_DATA_HOME", home_.path() / "data");
        set("SSL_CERT_FILE", backend_.trustFile());
        set("https_proxy", backend_.proxyUrl());
        for (const char* name : {"no_proxy", "NO_PROXY", "http_proxy", "all_proxy", "ALL_PROXY"})
            unsetenv(name);
        platform::Console::setOutput([&to = output_](std::string_view line) { to.add(line); });
        platform::Bundle::setMainIdentifier("com.example.tests");
        backend_.answer("", success);
    }

    static void set(const char* name, const std::string& value) { setenv(name, value.c_str(), 1); }

    /// Initialises the framework on first use.
    KivoCommunicationPlugin& plugin() {
        if (!KivoSDK::instance()) {
            KivoSDK::initialise({.apiKey = "key"});
            output_.awaitLine("SDK Initialized successfully: ");
        }
        return *KivoSDK::instance();
    }

    /// The same, for a user who is set and whose token is `userToken`.
    KivoCommunicationPlugin& pluginWithUser(const std::string& userToken = "u-1") {
        backend_.answer("user/authenticate", userReply(userToken));
        plugin().setUser("40", "711", "ana@example.com", "Ana");
        output_.awaitLine("setUser successfully: ");
        return plugin();
    }

    ScriptedBackend& backend() { return backend_; }
    /// What the framework prints, line by line, in place of standard output.
    Lines& output() { return output_; }
    const TemporaryDirectory& home() const { return home_; }

private:
    /// What the backend answers where a test scripts nothing.
    static Reply success(const Request& request) {
        if (request.path().ends_with("sdk/authenticate")) return merchantReply("m-1", "s-1");
        if (request.path().ends_with("user/authenticate")) return userReply("u-1");
        return messageReply("ok");
    }

    static Lines& lines() {
        static Lines& kept = *new Lines;  // Never destroyed: background work may still print.
        return kept;
    }

    TemporaryDirectory home_;
    ScriptedBackend backend_{home_.path(), {"api.kivo.example"}};
    Lines& output_ = lines();
};

}  // namespace kivo::tests
