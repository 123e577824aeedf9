#include "kivo/storage/CacheManager.h"

#include <exception>
#include <utility>

#include "kivo/platform/json/JSON.h"

namespace kivo {

using platform::Data;
using platform::UserDefaults;

namespace {

/// The persisted keys. Their mixed capitalisation stays: existing installations use it.
namespace key {

constexpr const char* isProduction = "isProduction";
constexpr const char* sessionId = "sessionId";
constexpr const char* userJwtToken = "UserJwtToken";
constexpr const char* merchantJwtTokenTemp = "MerchantJwtTokenTemp";
constexpr const char* sdkAuthRequest = "SdkAuthRequest";
constexpr const char* userAuthRequest = "UserAuthRequest";

}  // namespace key

std::string text(const char* name) { return UserDefaults::standard().string(name).value_or(""); }

template <typename Record>
std::optional<Record> record(const char* name) {
    const auto data = UserDefaults::standard().data(name);
    if (!data) return std::nullopt;
    try {
        return platform::JSON::decode<Record>(*data);
    } catch (const std::exception&) {
        // A record of another version counts as absent and is left as it is.
        return std::nullopt;
    }
}

template <typename Record>
std::optional<Data> encoded(const Record& record) {
    try {
        return platform::JSON::encode(record);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace

CacheManager::CacheManager() : queue_("com.cacheManager.writeQueue") {
    UserDefaults::standard().loadAhead();
}

CacheManager& CacheManager::instance() {
    static CacheManager& store = *new CacheManager;
    return store;
}

bool CacheManager::getIsProduction() const {
    return UserDefaults::standard().boolean(key::isProduction);
}
std::string CacheManager::getSessionId() const { return text(key::sessionId); }
std::string CacheManager::getUserJwtToken() const { return text(key::userJwtToken); }
std::string CacheManager::getMerchantJwtTokenTemp() const {
    return text(key::merchantJwtTokenTemp);
}

std::optional<SdkAuthRequest> CacheManager::getSdkAuthRequest() const {
    return record<SdkAuthRequest>(key::sdkAuthRequest);
}

std::optional<UserAuthRequest> CacheManager::getUserAuthRequest() const {
    return record<UserAuthRequest>(key::userAuthRequest);
}

void CacheManager::setProduction(bool isProduction) {
    write([isProduction](Changes& changes) { changes.setBool(key::isProduction, isProduction); });
}

void CacheManager::saveUserJwtToken(std::string token) {
    write([token = std::move(token)](Changes& changes) {
        changes.setString(key::userJwtToken, token);
        changes.setString(key::merchantJwtTokenTemp, "");  // Blanked, not removed.
    });
}

void CacheManager::saveMerchantJwtTokenTemp(SdkAuthData result) {
    write([result = std::move(result)](Changes& changes) {
        changes.setString(key::merchantJwtTokenTemp, result.merchantToken);
        changes.setString(key::sessionId, result.sessionId);
    });
}

void CacheManager::saveSdkAuthRequest(SdkAuthRequest req) {
    write([req = std::move(req)](Changes& changes) {
        if (auto data = encoded(req)) changes.setData(key::sdkAuthRequest, *std::move(data));
    });
}

/// An SDK request that cannot be encoded leaves the saved one; a user request that cannot be
/// encoded removes it: asking the host again is better than authenticating as somebody else.
void CacheManager::saveUserAuthRequest(std::optional<UserAuthRequest> req) {
    write([req = std::move(req)](Changes& changes) {
        auto data = req ? encoded(*req) : std::nullopt;
        if (data) {
            changes.setData(key::userAuthRequest, *std::move(data));
        } else {
            changes.remove(key::userAuthRequest);
        }
    });
}

void CacheManager::write(std::function<void(Changes&)> change) const {
    queue_.asyncBarrier([change = std::move(change)] { UserDefaults::standard().update(change); });
}

}  // namespace kivo
