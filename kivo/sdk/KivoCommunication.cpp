#include "kivo/sdk/KivoCommunication.h"

#include <utility>

#include "kivo/platform/system/Guarded.h"
#include "kivo/platform/system/Process.h"

namespace kivo {

struct KivoCommunication::State {
    explicit State(KivoConfig given)
        : config(given), kivoCore(std::make_shared<KivoCore>(std::move(given))) {}

    platform::Guarded<KivoConfig> config;
    platform::Guarded<std::shared_ptr<KivoCore>> kivoCore;
};

namespace {

/// Calls the core that `plugin` currently holds, unless the process is ending or a forked child.
template <typename Forward>
void forward(const KivoCommunication& plugin, const Forward& call) noexcept {
    if (platform::Process::isUsable()) call(*plugin.kivoCore());
}

}  // namespace

KivoCommunication::KivoCommunication(KivoConfig config)
    : state_(std::make_unique<State>(std::move(config))) {
    state_->kivoCore.get()->initSdk();
}

KivoCommunication::~KivoCommunication() = default;

KivoConfig KivoCommunication::config() const { return state_->config.get(); }
void KivoCommunication::setConfig(KivoConfig config) { state_->config.set(std::move(config)); }
void KivoCommunication::modifyConfig(const std::function<void(KivoConfig&)>& change) {
    state_->config.modify(change);
}

std::shared_ptr<KivoCore> KivoCommunication::kivoCore() const { return state_->kivoCore.get(); }

void KivoCommunication::setKivoCore(std::shared_ptr<KivoCore> core) {
    if (core) state_->kivoCore.set(std::move(core));
}

void KivoCommunication::modifyKivoCore(
    const std::function<void(std::shared_ptr<KivoCore>&)>& change) {
    // In the end this holds the old core, which is released outside the lock.
    std::shared_ptr<KivoCore> changed;
    state_->kivoCore.modify([&](std::shared_ptr<KivoCore>& core) {
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
