#pragma once

#include <chrono>
#include <memory>

#include "kivo/platform/Export.h"
#include "kivo/sdk/KivoCommunicationPlugin.h"
#include "kivo/sdk/KivoConfig.h"
#include "kivo/sdk/RemoteMessage.h"

namespace kivo {

/// The entry. The host must also name itself, once, with `KIVO_BUNDLE_IDENTIFIER` from
/// "kivo/platform/Bundle.h" or with `Bundle::setMainIdentifier`: the first request of a host
/// without an identifier stops the process.
class KIVO_EXPORT KivoSDK {
public:
    /// Makes the plugin on the first call, which starts SDK authentication in the background, and
    /// returns it, never empty. Every later call prints "Kivo already initialized", ignores
    /// `config` and returns the same plugin. Any threads may race. Where there is no memory or no
    /// thread for the plugin, the one returned drops every operation, and the next call tries
    /// again.
    static std::shared_ptr<KivoCommunicationPlugin> initialise(const KivoConfig& config) noexcept;

    /// The plugin, or empty before the first `initialise`.
    static std::shared_ptr<KivoCommunicationPlugin> instance() noexcept;

    /// Waits until no operation is under way and what the operations stored is on disk, at most
    /// `timeout`, and returns whether that was reached: true at once where nothing is under way,
    /// false in a forked child. For a short-lived host, on a thread of its own; from a `Console`
    /// sink it would wait for itself.
    static bool waitUntilIdle(std::chrono::milliseconds timeout) noexcept;

    KivoSDK() = delete;
};

}  // namespace kivo
