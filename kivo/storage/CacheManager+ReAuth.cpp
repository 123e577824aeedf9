// The two re-authentications. Only here do the layers form a cycle: the store calls the repository,
// whose requests pass through the interceptor, which asks the store for a fresh token.

#include <exception>
#include <utility>

#include "kivo/api/CoreRepository.h"
#include "kivo/platform/Console.h"
#include "kivo/platform/system/FatalError.h"
#include "kivo/storage/CacheManager.h"
#include "kivo/storage/SDKError.h"

namespace kivo {

namespace {

/// The data of the reply, whatever else the envelope says. A failure is printed and rethrown. A
/// reply without data aborts the process on purpose: the backend never sends one.
template <typename Payload>
platform::Task<Payload> dataOf(CoreRepository::Reply<Payload> call) {
    try {
        auto response = co_await std::move(call);
        if (!response) throw SDKError(SDKError::tokenFetchError);
        co_return platform::unwrap(std::move(response->data));
    } catch (const std::exception& error) {
        platform::Console::print("Error refreshing token: " +
                                 platform::localizedDescription(error));
        throw;
    }
}

}  // namespace

platform::Task<std::string> CacheManager::reAuthSdk() {
    const auto request = getSdkAuthRequest();
    if (!request) throw SDKError(SDKError::missingSdkParams);

    CoreRepository repository;
    auto call = dataOf(repository.authenticateSdk(*request));
    const auto data = co_await std::move(call);
    saveMerchantJwtTokenTemp(data);
    // The reply's own token, since the queued write may not have been applied yet.
    co_return data.merchantToken;
}

platform::Task<std::string> CacheManager::reAuthUser() {
    const auto request = getUserAuthRequest();
    if (!request) throw SDKError(SDKError::missingUserParams);

    CoreRepository repository;
    auto call = dataOf(repository.authenticateUser(*request));
    const auto data = co_await std::move(call);
    saveUserJwtToken(data.userToken);
    co_return data.userToken;
}

}  // namespace kivo
