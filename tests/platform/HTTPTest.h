#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>

#include "kivo/platform/URLSession.h"
#include "tests/platform/Load.h"
#include "tests/support/ScriptedBackend.h"
#include "tests/support/TemporaryDirectory.h"

namespace kivo::tests {

/// Makes `file` the only authority that this process trusts, and the network a direct one. The
/// platform reads this once, so a test of HTTP needs a process of its own; ctest gives it one.
inline void trustOnly(const std::string& file) {
    setenv("SSL_CERT_FILE", file.c_str(), 1);
    setenv("SSL_CERT_DIR", "/nowhere", 1);
    for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        unsetenv(name);
}

/// The shared session against a scripted server over real sockets.
class HTTPTest : public testing::Test {
protected:
    HTTPTest() { trustOnly(backend_.trustFile()); }
    ~HTTPTest() override { settle(); }

    static Load begin(platform::URLRequest request) {
        return std::move(Load(platform::URLSession::shared(), std::move(request)).resume());
    }

    static Outcome load(platform::URLRequest request) {
        return begin(std::move(request)).outcome();
    }
    static Outcome get(std::string_view url) { return load(requestFor(url)); }

    /// A request to `path` that says `method`, and what arrived.
    Request sent(const platform::URLRequest& request) {
        EXPECT_EQ(load(request).status(), 200);
        return backend().last("");
    }

    /// A reply begins to hang some time after its request was seen.
    void releaseUntilEnded(Load& load) {
        do backend().release();
        while (!load.hasEnded(std::chrono::milliseconds(5)));
    }

    platform::URLRequest request(std::string_view path, std::string method = "GET") {
        auto made = requestFor(backend().url(path));
        made.setHTTPMethod(std::move(method));
        return made;
    }

    ScriptedBackend& backend() { return backend_; }

private:
    TemporaryDirectory folder_;
    ScriptedBackend backend_{folder_.path()};
};

}  // namespace kivo::tests
