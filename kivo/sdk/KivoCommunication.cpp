#include "kivo/sdk/KivoCommunication.h"

#include <utility>

#include "kivo/platform/system/Process.h"

namespace kivo {

namespace {

/// Reads the core at the moment of the call, unless the framework may not act: a forked child may
/// have inherited the lock that guards it.
template <typename Forward>
void forward(const KivoCommunication& plugin, const Forward& call) noexcept {
    if (platform::Process::isUsable()) call(*plugin.kivoCore());
}

}  // namespace

KivoCommunication::KivoCommunication(KivoConfig config)
    : config_(config), kivoCore_(std::make_shared<KivoCore>(std::move(config))) {
    kivoCore_.get()->initSdk();
}

KivoConfig KivoCommunication::config() const { return config_.get(); }
void KivoCommunication::setConfig(KivoConfig config) { config_.set(std::move(config)); }
void KivoCommunication::modifyConfig(const std::function<void(KivoConfig&)>& change) {
    config_.modify(change);
}

std::shared_ptr<KivoCore> KivoCommunication::kivoCore() const { return kivoCore_.get(); }

void KivoCommunication::setKivoCore(std::shared_ptr<KivoCore> core) {
    if (core) kivoCore_.set(std::move(core));
}

void KivoCommunication::modifyKivoCore(
    const std::function<void(std::shared_ptr<KivoCore>&)>& change) {
    std::shared_ptr<KivoCore> changed;  // Holds the old core at last, which ends outside the lock.
    kivoCore_.modify([&](std::shared_ptr<KivoCore>& core) {
        changed = core;
        change(changed);
        if (changed) core.swap(changed);
    });
}

void KivoCommunication::setUser(std::optional<std::string> country,
                                std::optional<std::string> phone, std::optional<std::string> email,
                                std::optional<std::string> name) noexcept {
    UserAuthRequest request{.countryCode = std::move(country),
                            .phone = std::move(phone),
                            .email = std::move(email),
                            .name = std::move(name)};
    forward(*this, [&](KivoCore& core) { core.setUser(std::move(request)); });
}

void KivoCommunication::updateDeviceToken(std::string token) noexcept {
    forward(*this, [&](KivoCore& core) { core.updateDeviceToken(std::move(token)); });
}

void KivoCommunication::setNotificationPermission(bool hasPermission) noexcept {
    forward(*this, [&](KivoCore& core) { core.updateNotificationPermission(hasPermission); });
}

void KivoCommunication::onMessageReceived(const RemoteMessage& remoteMessage) noexcept {
    forward(*this, [&](KivoCore& core) { core.onMessageReceived(remoteMessage); });
}

void KivoCommunication::unsetUser() noexcept {
    forward(*this, [](KivoCore& core) { core.unsetUser(); });
}

}  // namespace kivo
