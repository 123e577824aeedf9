#pragma once

#include <functional>
#include <optional>
#include <string>

#include "kivo/api/WireModels.h"
#include "kivo/platform/Task.h"
#include "kivo/platform/persistence/UserDefaults.h"
#include "kivo/platform/tasks/DispatchQueue.h"

namespace kivo {

/// The session store: everything that the framework remembers between calls and launches, in the
/// application's user defaults. Callable on any thread. Reads go straight to the store and may miss
/// a write that is still queued; writes are queued, applied in order, and return at once. Only the
/// two re-authentications report errors.
class CacheManager {
public:
    /// Never destroyed: background work may outlive main().
    static CacheManager& instance();

    virtual bool getIsProduction() const;
    virtual std::string getSessionId() const;
    virtual std::string getUserJwtToken() const;
    virtual std::string getMerchantJwtTokenTemp() const;
    virtual std::optional<SdkAuthRequest> getSdkAuthRequest() const;
    virtual std::optional<UserAuthRequest> getUserAuthRequest() const;

    virtual void setProduction(bool isProduction);
    /// Blanks the temporary merchant token too: a user token supersedes it.
    virtual void saveUserJwtToken(std::string token);
    virtual void saveMerchantJwtTokenTemp(SdkAuthData result);
    /// Keeps the earlier request if this one cannot be encoded.
    virtual void saveSdkAuthRequest(SdkAuthRequest req);
    /// Removes the saved request if `req` is empty or cannot be encoded.
    virtual void saveUserAuthRequest(std::optional<UserAuthRequest> req);

    /// Authenticates again with the saved request, stores the result and returns the new token.
    /// Throws `SDKError` or the repository's error, and leaves the store as it was. Concurrent
    /// calls authenticate separately.
    virtual platform::Task<std::string> reAuthSdk();
    virtual platform::Task<std::string> reAuthUser();

    virtual ~CacheManager() = default;
    CacheManager(const CacheManager&) = delete;
    CacheManager& operator=(const CacheManager&) = delete;

private:
    using Changes = platform::UserDefaults::Changes;

    CacheManager();
    void write(std::function<void(Changes&)> change) const;

    const platform::DispatchQueue queue_;
};

}  // namespace kivo
