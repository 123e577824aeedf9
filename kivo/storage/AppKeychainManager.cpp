#include "kivo/storage/AppKeychainManager.h"

#include "kivo/platform/Console.h"
#include "kivo/platform/base/UTF8.h"
#include "kivo/platform/base/UUID.h"
#include "kivo/platform/persistence/Keychain.h"
#include "kivo/platform/tasks/Loop.h"

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

bool AppKeychainManager::lookAhead() const {
    return Keychain::standard().lookAhead(serviceName, accountName);
}

void AppKeychainManager::saveToKeychain(std::string_view data, std::string_view service,
                                        std::string_view account) {
    const auto tell = [](Keychain::Status status) {
        if (status != Keychain::success)
            platform::Console::print("Error: " + std::to_string(status));
    };
    auto& keychain = Keychain::standard();
    if (!platform::Loop::isCurrent()) return tell(keychain.add(service, account, data));
    keychain.addLater(std::string(service), std::string(account), Data(data), tell);
}

}  // namespace kivo
