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

/// Turns each public operation into one backend call in the background, stores the tokens from its
/// reply, and prints its outcome as one line. Operations may be called on any thread, return at
/// once and never throw; an operation that cannot start because memory or threads run out is
/// dropped. Create a core with std::make_shared: a running operation then keeps it alive.
class KIVO_EXPORT KivoCore : public std::enable_shared_from_this<KivoCore> {
public:
    /// The core's own copy of the configuration: the constructor reads `isProduction` from it and
    /// `initSdk()` reads `apiKey`. Setting it neither authenticates nor selects another backend.
    virtual KivoConfig config() const;
    virtual void setConfig(KivoConfig config);
    /// Changes the copy in place; other threads wait while `change` runs. What it throws is passed
    /// on, and what it has changed stays.
    virtual void modifyConfig(const std::function<void(KivoConfig&)>& change);

    /// Records in the session store which backend to use. Throws std::bad_alloc or
    /// std::system_error if memory or threads run out: without that record the core would talk to
    /// the wrong backend.
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
