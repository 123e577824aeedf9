#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kivo/sdk/KivoSDK.h"
#include "tests/framework/Output.h"
#include "tests/support/ScriptedBackend.h"
#include "tests/support/TemporaryDirectory.h"

namespace kivo::tests {

/// The whole framework over real TLS: a home of its own, a scripted backend that stands in for both
/// base URLs (the library reaches it as its proxy), and the printed lines. Kivo's shared instances
/// live as long as the process, so every such test needs a process of its own; ctest gives it one.
class FrameworkTest : public testing::Test {
protected:
    FrameworkTest();

    /// Initialises the framework on first use. SDK authentication is scripted to succeed with token
    /// "m-1" and session "s-1", after whatever the test scripted for it before.
    KivoCommunicationPlugin& plugin();

    /// The same, for a user who is set and whose token is `userToken`.
    KivoCommunicationPlugin& pluginWithUser(const std::string& userToken = "u-1");

    ScriptedBackend& backend() { return backend_; }
    Output& output() { return output_; }
    const TemporaryDirectory& home() const { return home_; }

    /// Waits until everything that was begun has ended and is on disk.
    static void settle();

    bool isProduction = false;

private:
    TemporaryDirectory home_;
    ScriptedBackend backend_;
    Output& output_;
};

}  // namespace kivo::tests
