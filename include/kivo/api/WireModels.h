#pragma once

#include <optional>
#include <string>
#include <tuple>

#include "kivo/platform/Record.h"

/// The records that cross the wire or are stored in order to authenticate again. Each lists its
/// fields once more, in `fields`; decoding, encoding and describing follow that list, and its names
/// are the JSON keys.
namespace kivo {

/// The credentials of the SDK itself.
struct SdkAuthRequest {
    std::string apiKey;

    static std::string typeName() { return "Kivo.SdkAuthRequest"; }
    static constexpr auto fields = std::tuple{platform::field("apiKey", &SdkAuthRequest::apiKey)};
};

/// What a successful SDK authentication yields.
struct SdkAuthData {
    std::string merchantToken;
    std::string sessionId;

    static std::string typeName() { return "Kivo.SdkAuthData"; }
    static constexpr auto fields =
        std::tuple{platform::field("merchantToken", &SdkAuthData::merchantToken),
                   platform::field("sessionId", &SdkAuthData::sessionId)};
};

/// The host application's user; any of the fields may be given.
struct UserAuthRequest {
    std::optional<std::string> countryCode = std::nullopt;
    std::optional<std::string> phone = std::nullopt;
    std::optional<std::string> email = std::nullopt;
    std::optional<std::string> name = std::nullopt;

    static std::string typeName() { return "Kivo.UserAuthRequest"; }
    static constexpr auto fields =
        std::tuple{platform::field("countryCode", &UserAuthRequest::countryCode),
                   platform::field("phone", &UserAuthRequest::phone),
                   platform::field("email", &UserAuthRequest::email),
                   platform::field("name", &UserAuthRequest::name)};
};

/// What a successful user authentication yields.
struct AuthUserResponseData {
    std::string userToken;

    static std::string typeName() { return "Kivo.AuthUserResponseData"; }
    static constexpr auto fields =
        std::tuple{platform::field("userToken", &AuthUserResponseData::userToken)};
};

/// The backend's reply to unsetting the user.
struct UnsetUserResponseData {
    std::string message;

    static std::string typeName() { return "Kivo.UnsetUserResponseData"; }
    static constexpr auto fields =
        std::tuple{platform::field("message", &UnsetUserResponseData::message)};
};

/// The backend's reply to a device token or a notification consent.
struct DeviceTokenSubmitResponse {
    std::string message;

    static std::string typeName() { return "Kivo.DeviceTokenSubmitResponse"; }
    static constexpr auto fields =
        std::tuple{platform::field("message", &DeviceTokenSubmitResponse::message)};
};

/// The envelope of every reply. `success` is passed on and never interpreted: a reply that says
/// false is still a reply.
template <typename T>
struct ApiResponse {
    bool success = false;
    std::string message;
    std::optional<T> data = std::nullopt;

    static std::string typeName() { return "Kivo.ApiResponse<" + T::typeName() + ">"; }
    static constexpr auto fields = std::tuple{platform::field("success", &ApiResponse::success),
                                              platform::field("message", &ApiResponse::message),
                                              platform::field("data", &ApiResponse::data)};
};

}  // namespace kivo
