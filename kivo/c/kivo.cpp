#include "kivo/kivo.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "kivo/c/LineOutput.h"
#include "kivo/platform/Bundle.h"
#include "kivo/sdk/KivoSDK.h"

#define KIVO_TEXT_OF(number) #number
#define KIVO_DOTTED(major, minor, patch) \
    KIVO_TEXT_OF(major) "." KIVO_TEXT_OF(minor) "." KIVO_TEXT_OF(patch)

namespace {

using kivo::KivoCommunicationPlugin;
using kivo::KivoSDK;

std::optional<std::string> optional(const char* text) {
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

/// What throws has run out of memory or threads, and is dropped.
template <typename Action>
void attempt(const Action& action) noexcept {
    try {
        action();
    } catch (...) {
    }
}

template <typename Operation>
void withPlugin(const Operation& operation) noexcept {
    attempt([&] {
        if (const auto plugin = KivoSDK::instance()) operation(*plugin);
    });
}

kivo::RemoteMessage messageOf(const kivo_payload_entry* payload, std::size_t count) {
    kivo::RemoteMessage message;
    for (std::size_t i = 0; payload != nullptr && i < count; ++i) {
        const auto& [section, key, value] = payload[i];
        if (section != nullptr && key != nullptr && value != nullptr)
            message[section].try_emplace(key, std::string(value));
    }
    return message;
}

}  // namespace

// NOLINTBEGIN(readability-identifier-naming): C's own style.
extern "C" {

const char* kivo_version() noexcept {
    return KIVO_DOTTED(KIVO_VERSION_MAJOR, KIVO_VERSION_MINOR, KIVO_VERSION_PATCH);
}

void kivo_set_bundle_identifier(const char* identifier) noexcept {
    if (identifier == nullptr) return;
    attempt([&] { kivo::platform::Bundle::setMainIdentifier(identifier); });
}

void kivo_set_output_descriptor(int descriptor) noexcept {
    attempt([&] {
        if (descriptor == -1) return kivo::c::sendLinesToStandardOutput();
        const auto lines = std::make_shared<kivo::c::LineDescriptor>(descriptor);
        if (lines->isOpen()) kivo::c::sendLinesTo(lines);
    });
}

void kivo_set_output_callback(kivo_line_callback callback, void* context) noexcept {
    attempt([&] {
        if (callback == nullptr) return kivo::c::sendLinesToStandardOutput();
        kivo::c::sendLinesTo(std::make_shared<kivo::c::LineCallback>(callback, context));
    });
}

bool kivo_initialise(const char* api_key, bool is_production) noexcept {
    if (api_key == nullptr) return false;
    attempt([&] { KivoSDK::initialise({.apiKey = api_key, .isProduction = is_production}); });
    return KivoSDK::instance() != nullptr;
}

void kivo_set_user(const char* country, const char* phone, const char* email,
                   const char* name) noexcept {
    withPlugin([&](KivoCommunicationPlugin& plugin) {
        plugin.setUser(optional(country), optional(phone), optional(email), optional(name));
    });
}

void kivo_update_device_token(const char* token) noexcept {
    if (token == nullptr) return;
    withPlugin([&](KivoCommunicationPlugin& plugin) { plugin.updateDeviceToken(token); });
}

void kivo_set_notification_permission(bool has_permission) noexcept {
    withPlugin(
        [&](KivoCommunicationPlugin& plugin) { plugin.setNotificationPermission(has_permission); });
}

void kivo_on_message_received(const kivo_payload_entry* payload, size_t count) noexcept {
    if (count > KIVO_MAX_PAYLOAD_ENTRIES) return;
    withPlugin([&](KivoCommunicationPlugin& plugin) {
        plugin.onMessageReceived(messageOf(payload, count));
    });
}

void kivo_unset_user() noexcept {
    withPlugin([](KivoCommunicationPlugin& plugin) { plugin.unsetUser(); });
}

bool kivo_wait_until_idle(int milliseconds) noexcept {
    return KivoSDK::waitUntilIdle(std::chrono::milliseconds(milliseconds));
}

}  // extern "C"
// NOLINTEND(readability-identifier-naming)
