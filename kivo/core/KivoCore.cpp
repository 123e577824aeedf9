#include "kivo/core/KivoCore.h"

#include <exception>
#include <utility>

#include "kivo/api/CoreRepository.h"
#include "kivo/core/Operation.h"
#include "kivo/platform/Console.h"
#include "kivo/platform/base/Description.h"
#include "kivo/platform/base/Error.h"
#include "kivo/platform/system/CancellationShield.h"
#include "kivo/platform/system/Guarded.h"
#include "kivo/platform/system/Process.h"
#include "kivo/storage/CacheManager.h"

namespace kivo {

using platform::Console;
using platform::Task;

struct KivoCore::State {
    CoreRepository coreRepository;
    platform::Guarded<KivoConfig> config;
};

namespace {

/// The start of a workflow's line, before the envelope or the error.
struct Outcome {
    const char* success;
    const char* failure;
};

constexpr auto keepNothing = [](const auto& /*response*/) {};

void keepSession(const std::optional<ApiResponse<SdkAuthData>>& response) {
    if (response && response->data)
        CacheManager::instance().saveMerchantJwtTokenTemp(*response->data);
}

/// Always saves: a reply without a token overwrites an earlier good one.
void keepUserToken(const std::optional<ApiResponse<AuthUserResponseData>>& response) {
    const bool named = response && response->data;
    CacheManager::instance().saveUserJwtToken(named ? response->data->userToken : "");
}

/// Awaits the call, stores the tokens from its reply and prints the outcome. Only a thrown error
/// counts as a failure; an envelope that says `success` is false is a reply like any other.
template <typename Payload, typename Keep>
Task<void> workflow(Outcome text, CoreRepository::Reply<Payload> call, Keep keep) {
    try {
        const auto response = co_await std::move(call);
        keep(response);
        Console::print(text.success + platform::describe(response));
    } catch (const std::exception& error) {
        Console::print(text.failure + platform::describe(error));
    }
}

/// Runs the workflow in the background, which keeps `core` and its repository alive.
template <typename Payload, typename Keep>
void start(const KivoCore& core, const Outcome& text, CoreRepository::Reply<Payload> call,
           Keep keep) {
    launch(core.weak_from_this().lock(), workflow(text, std::move(call), std::move(keep)));
}

}  // namespace

KivoCore::KivoCore(KivoConfig config)
    : state_(new State{.coreRepository = {}, .config = platform::Guarded(std::move(config))}) {
    const platform::CancellationShield uncancelled;
    if (!platform::Process::isUsable()) return;
    platform::Process::prepare();
    CacheManager::instance().setProduction(state_->config.get().isProduction);
}

KivoCore::~KivoCore() = default;

KivoConfig KivoCore::config() const { return state_->config.get(); }
void KivoCore::setConfig(KivoConfig config) { state_->config.set(std::move(config)); }
void KivoCore::modifyConfig(const std::function<void(KivoConfig&)>& change) {
    state_->config.modify(change);
}

void KivoCore::initSdk() noexcept {
    operation([&] {
        const SdkAuthRequest request{.apiKey = config().apiKey};
        CacheManager::instance().saveSdkAuthRequest(request);
        start(
            *this,
            {.success = "SDK Initialized successfully: ", .failure = "Failed to initialize SDK: "},
            state_->coreRepository.authenticateSdk(request), keepSession);
    });
}

void KivoCore::setUser(std::optional<UserAuthRequest> authUserRequest) noexcept {
    operation([&] {
        const UserAuthRequest request = std::move(authUserRequest).value_or(UserAuthRequest());
        CacheManager::instance().saveUserAuthRequest(request);
        start(*this, {.success = "setUser successfully: ", .failure = "Failed to setUser: "},
              state_->coreRepository.authenticateUser(request), keepUserToken);
    });
}

void KivoCore::updateDeviceToken(std::string token) noexcept {
    operation([&] {
        start(*this,
              {.success = "updateDeviceToken successfully: ",
               .failure = "Failed to updateDeviceToken: "},
              state_->coreRepository.updatedeviceToken(std::move(token)), keepNothing);
    });
}

/// The consent workflow reports its failure under the device token's name.
void KivoCore::updateNotificationPermission(bool hasPermission) noexcept {
    operation([&] {
        start(*this,
              {.success = "updateNotificationPermission successfully: ",
               .failure = "Failed to updateDeviceToken: "},
              state_->coreRepository.updateNotificationPermission(hasPermission), keepNothing);
    });
}

/// Sends an empty session id and deletes nothing: tokens, session id and saved requests stay.
void KivoCore::unsetUser() noexcept {
    operation([&] {
        start(*this, {.success = "unsetUser successfully: ", .failure = "Failed to unsetUser: "},
              state_->coreRepository.unsetUser(""), keepNothing);
    });
}

}  // namespace kivo
