#include "kivo/storage/AppKeychainManager.h"

#include "kivo/platform/Console.h"
#include "kivo/platform/Keychain.h"
#include "kivo/platform/UTF8.h"
#include "kivo/platform/UUID.h"

namespace kivo {

using platform::Data;
using platform::Keychain;

std::string AppKeychainManager::getDeviceIdentifier() const {
    const auto stored = readFromKeychain(serviceName_, accountName_);
    if (stored && platform::UTF8::isWellFormed(*stored)) return *stored;

    const std::string identifier = platform::UUID().uuidString();
    saveToKeychain(identifier, serviceName_, accountName_);
    return identifier;
}

std::optional<Data> AppKeychainManager::readFromKeychain(const std::string& service,
                                                         const std::string& account) {
    return Keychain::standard().copyMatching(service, account);
}

void AppKeychainManager::saveToKeychain(const Data& data, const std::string& service,
                                        const std::string& account) {
    const int status = Keychain::standard().add(service, account, data);
    if (status != 0) platform::Console::print("Error: " + std::to_string(status));
}

}  // namespace kivo
