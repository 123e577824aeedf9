#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "kivo/api/WireModels.h"
#include "kivo/platform/Export.h"
#include "kivo/sdk/KivoConfig.h"
#include "kivo/sdk/RemoteMessage.h"

namespace kivo {

/// Turns each public operation into one backend call in the background, keeps what must be kept of
/// its answer, and prints its outcome as one line. Operations may be called from any thread, return
/// at once and never throw; what cannot be started for want of memory or threads is dropped.
class KIVO_EXPORT KivoCore : public std::enable_shared_from_this<KivoCore> {
public:
    /// The core's own copy; only `initSdk()` reads it. Setting it authenticates nothing and changes
    /// no backend.
    virtual KivoConfig config() const;
    virtual void setConfig(KivoConfig config);
    virtual void modifyConfig(const std::function<void(KivoConfig&)>& change);

    /// Records in the session store which backend is meant. Throws when memory or threads cannot be
    /// had: a core that went on without would speak to the wrong backend.
    explicit KivoCore(KivoConfig config);

    virtual void initSdk() noexcept;
    virtual void setUser(std::optional<UserAuthRequest> authUserRequest) noexcept;
    virtual void updateDeviceToken(std::string token) noexcept;
    virtual void updateNotificationPermission(bool hasPermission) noexcept;
    virtual void onMessageReceived(const RemoteMessage& message) noexcept;
    virtual void unsetUser() noexcept;

    virtual ~KivoCore();
    KivoCore(const KivoCore&) = delete;
    KivoCore& operator=(const KivoCore&) = delete;

private:
    struct State;

    const std::unique_ptr<State> state_;
};

}  // namespace kivo
