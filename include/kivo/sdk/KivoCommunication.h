#pragma once

#include <memory>

#include "kivo/core/KivoCore.h"
#include "kivo/sdk/KivoCommunicationPlugin.h"

namespace kivo {

/// The one plugin: forwards every operation to the core that it currently holds.
class KIVO_EXPORT KivoCommunication : public KivoCommunicationPlugin {
public:
    KivoConfig config() const override;
    void setConfig(KivoConfig config) override;
    void modifyConfig(const std::function<void(KivoConfig&)>& change) override;

    /// Never empty. A core that is set here receives all later calls and is not initialised; an
    /// empty pointer is ignored.
    virtual std::shared_ptr<KivoCore> kivoCore() const;
    virtual void setKivoCore(std::shared_ptr<KivoCore> core);
    /// Changes the pointer in place; other threads wait while `change` runs. If it throws, the core
    /// stays.
    virtual void modifyKivoCore(const std::function<void(std::shared_ptr<KivoCore>&)>& change);

    /// Creates the core with a copy of `config` and starts SDK authentication in the background.
    /// Throws as the core's constructor does.
    explicit KivoCommunication(KivoConfig config);
    ~KivoCommunication() override;

    void setUser(std::optional<std::string> country, std::optional<std::string> phone,
                 std::optional<std::string> email,
                 std::optional<std::string> name) noexcept override;
    void updateDeviceToken(std::string token) noexcept override;
    void setNotificationPermission(bool hasPermission) noexcept override;
    void onMessageReceived(const RemoteMessage& remoteMessage) noexcept override;
    void unsetUser() noexcept override;

private:
    struct State;

    const std::unique_ptr<State> state_;
};

}  // namespace kivo
