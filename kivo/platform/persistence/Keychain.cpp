#include "kivo/platform/persistence/Keychain.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "kivo/platform/system/Environment.h"
#include "kivo/platform/system/Process.h"

namespace kivo::platform {

namespace {

constexpr const char* schema =
    "CREATE TABLE IF NOT EXISTS items (service TEXT NOT NULL, account TEXT NOT NULL, data BLOB NOT "
    "NULL, "
    "PRIMARY KEY (service, account))";

std::optional<std::filesystem::path> standardFile() {
    const auto& directory = Environment::current().dataDirectory;
    return directory ? std::optional(*directory / "kivo" / "keychain.db") : std::nullopt;
}

}  // namespace

Keychain& Keychain::standard() {
    static Keychain& user = *new Keychain(standardFile());
    return user;
}

Keychain::Keychain(std::optional<std::filesystem::path> file) {
    if (file) file_.emplace(*std::move(file), schema);
}

std::optional<Data> Keychain::copyMatching(std::string_view service, std::string_view account) {
    if (!Process::isOwn()) return std::nullopt;
    try {
        const Lock lock(mutex_);
        if (!file_) return std::nullopt;
        const Item* item = known(service, account);
        if (item == nullptr) item = look(service, account);
        return item != nullptr ? std::optional(item->data) : std::nullopt;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

const Keychain::Item* Keychain::known(std::string_view service, std::string_view account) const {
    const auto matches = [&](const Item& item) {
        return item.service == service && item.account == account;
    };
    const auto found = std::ranges::find_if(known_, matches);
    return found != known_.end() ? &*found : nullptr;
}

const Keychain::Item* Keychain::look(std::string_view service, std::string_view account) {
    std::optional<Data> found;
    file_->read([&](Database& database) {
        Statement items =
            database.prepare("SELECT data FROM items WHERE service = ? AND account = ?");
        items.bindText(1, service);
        items.bindText(2, account);
        if (items.step() && items.type(0) == Statement::Type::blob) found = items.bytes(0);
    });
    if (!found) return nullptr;
    return &known_.emplace_back(
        Item{std::string(service), std::string(account), *std::move(found)});
}

Keychain::Status Keychain::add(std::string_view service, std::string_view account,
                               std::string_view data) {
    if (!Process::isOwn()) return notAvailable;
    const auto insert = [&](Database& database) {
        Statement item =
            database.prepare("INSERT INTO items (service, account, data) VALUES (?, ?, ?)");
        item.bindText(1, service);
        item.bindText(2, account);
        item.bindBlob(3, data);
        item.run();
    };
    try {
        const Lock lock(mutex_);
        if (!file_) return notAvailable;
        file_->write(insert);
        return success;
    } catch (const DatabaseError& error) {
        return error.saysDuplicate() ? duplicateItem : ioError;
    } catch (const std::exception&) {
        return ioError;
    }
}

}  // namespace kivo::platform
