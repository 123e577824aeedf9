#pragma once

#include <cstddef>
#include <memory>
#include <new>

#include "kivo/sdk/KivoCommunicationPlugin.h"

namespace kivo {

/// The plugin that a host gets when memory or threads run out: it drops every operation, as the
/// real plugin does then.
class IdlePlugin final : public KivoCommunicationPlugin {
public:
    /// Allocates nothing and is never destroyed.
    static std::shared_ptr<KivoCommunicationPlugin> shared() noexcept {
        alignas(IdlePlugin) static std::byte storage[sizeof(IdlePlugin)];
        static auto* const plugin = new (storage) IdlePlugin;
        return {std::shared_ptr<void>(), plugin};
    }

    KivoConfig config() const override { return {}; }
    void setConfig(KivoConfig /*config*/) override {}
    void modifyConfig(const std::function<void(KivoConfig&)>& /*change*/) override {}
    void setUser(std::optional<std::string> /*country*/, std::optional<std::string> /*phone*/,
                 std::optional<std::string> /*email*/,
                 std::optional<std::string> /*name*/) noexcept override {}
    void updateDeviceToken(std::string /*token*/) noexcept override {}
    void setNotificationPermission(bool /*hasPermission*/) noexcept override {}
    void onMessageReceived(const RemoteMessage& /*remoteMessage*/) noexcept override {}
    void unsetUser() noexcept override {}
};

}  // namespace kivo
