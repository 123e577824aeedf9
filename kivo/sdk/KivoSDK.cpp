#include "kivo/sdk/KivoSDK.h"

#include <atomic>

#include "kivo/platform/Console.h"
#include "kivo/platform/system/CancellationShield.h"
#include "kivo/platform/system/ForkSafeMutex.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/Loop.h"
#include "kivo/sdk/IdlePlugin.h"
#include "kivo/sdk/KivoCommunication.h"

namespace kivo {

namespace {

using Plugin = std::shared_ptr<KivoCommunicationPlugin>;

/// The one plugin. Never cleared and never destroyed: background work may outlive main().
std::atomic<const Plugin*> kivo{nullptr};

/// Creates the plugin unless another thread already has; returns whether this call created it.
bool makePlugin(const KivoConfig& config) {
    platform::Process::prepare();
    if (!platform::Process::isOwn()) return false;
    static platform::ForkSafeMutex& oneAtATime = *new platform::ForkSafeMutex;
    const platform::ForkSafeLock lock(oneAtATime);
    if (kivo.load(std::memory_order_acquire) != nullptr) return false;
    kivo.store(new Plugin(std::make_shared<KivoCommunication>(config)), std::memory_order_release);
    return true;
}

}  // namespace

std::shared_ptr<KivoCommunicationPlugin> KivoSDK::initialise(const KivoConfig& config) noexcept {
    const platform::CancellationShield uncancelled;
    try {
        const bool isFirst = !instance() && makePlugin(config);
        if (!isFirst) platform::Console::print("Kivo already initialized");
    } catch (...) {  // Out of memory or threads: a later call tries again.
    }
    auto made = instance();
    return made ? made : IdlePlugin::shared();
}

std::shared_ptr<KivoCommunicationPlugin> KivoSDK::instance() noexcept {
    const Plugin* plugin = kivo.load(std::memory_order_acquire);
    return plugin == nullptr ? nullptr : *plugin;
}

bool KivoSDK::waitUntilIdle(std::chrono::milliseconds timeout) noexcept {
    const platform::CancellationShield uncancelled;
    return platform::Loop::waitUntilIdle(timeout);
}

}  // namespace kivo
