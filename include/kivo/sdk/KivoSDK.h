#pragma once

#include <chrono>
#include <memory>

#include "kivo/platform/Export.h"
#include "kivo/sdk/KivoCommunicationPlugin.h"
#include "kivo/sdk/KivoConfig.h"
#include "kivo/sdk/RemoteMessage.h"

namespace kivo {

/// The entry point. The host must also set its bundle identifier, once, with
/// `KIVO_BUNDLE_IDENTIFIER` from "kivo/platform/Bundle.h" or with `Bundle::setMainIdentifier`:
/// without an identifier the first request aborts the process.
class KIVO_EXPORT KivoSDK {
public:
    /// Returns the plugin, never empty. The first call creates it and starts SDK authentication in
    /// the background; every later call prints "Kivo already initialized", ignores `config` and
    /// returns the same plugin. `config` is copied; its key is also stored on disk, to authenticate
    /// again. Threads may call at the same time. If memory or threads run out,
    /// the returned plugin drops every operation, and the next call tries again.
    static std::shared_ptr<KivoCommunicationPlugin> initialise(const KivoConfig& config) noexcept;

    /// The plugin; empty until `initialise` has created it.
    static std::shared_ptr<KivoCommunicationPlugin> instance() noexcept;

    /// Blocks until no operation is running and everything that the operations stored has been
    /// written to disk or refused by it, or until `timeout` has passed. Returns whether that state
    /// was reached: true at once if nothing is running, false in a forked child. It is meant for
    /// short-lived hosts; call it on a thread of the host's own, since from a `Console` output it
    /// would wait for itself. If the thread is cancelled during the call, the cancellation takes
    /// effect after it returns.
    static bool waitUntilIdle(std::chrono::milliseconds timeout) noexcept;

    KivoSDK() = delete;
};

}  // namespace kivo
