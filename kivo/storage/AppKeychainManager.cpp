#include "kivo/storage/AppKeychainManager.h"

#include "kivo/platform/Console.h"
#include "kivo/platform/base/UTF8.h"
#include "kivo/platform/base/UUID.h"
#include "kivo/platform/persistence/Keychain.h"

namespace kivo {

using platform::Data;
using platform::Keychain;

std::string AppKeychainManager::getDeviceIdentifier() const {
    auto stored = readFromKeychain(serviceName, accountName);
    if (stored && platform::UTF8::isWellFormed(*stored)) return *std::move(stored);

    const std::string identifier = platform::UUID().uuidString();
    saveToKeychain(identifier, serviceName, accountName);
    return identifier;
}

std::optional<Data> AppKeychainManager::readFromKeychain(std::string_view service,
                                                         std::string_view account) {
    return Keychain::standard().copyMatching(service, account);
}

void AppKeychainManager::saveToKeychain(std::string_view data, std::string_view service,
                                        std::string_view account) {
    const int status = Keychain::standard().add(service, account, data);
    if (status != 0) platform::Console::print("Error: " + std::to_string(status));
}

}  // namespace kivo
