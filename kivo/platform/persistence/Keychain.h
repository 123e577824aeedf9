#pragma once

#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "kivo/platform/base/Data.h"
#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/persistence/DatabaseFile.h"

namespace kivo::platform {

/// The user's secrets, shared by all of the user's programs. An item is added once and never
/// changed, so one that has been found is remembered. Other calls go to disk, and may wait a second
/// there; any thread and any number of processes may call.
class Keychain {
public:
    enum Status : int {
        success = 0,
        ioError = -36,
        notAvailable = -25291,
        duplicateItem = -25299,
        itemNotFound = -25300
    };

    /// <data directory>/kivo/keychain.db; never destroyed.
    static Keychain& standard();

    /// Without a file nothing is found and nothing can be added.
    explicit Keychain(std::optional<std::filesystem::path> file);

    /// The item's data; any failure reads as its absence. Creates no file.
    std::optional<Data> copyMatching(std::string_view service, std::string_view account);

    /// Adds an item, if there is none yet of that service and account.
    Status add(std::string_view service, std::string_view account, std::string_view data);

private:
    struct Item {
        std::string service;
        std::string account;
        Data data;
    };

    const Item* known(std::string_view service, std::string_view account) const
        KIVO_REQUIRES(mutex_);
    const Item* look(std::string_view service, std::string_view account) KIVO_REQUIRES(mutex_);

    Mutex mutex_;
    std::optional<DatabaseFile> file_ KIVO_GUARDED_BY(mutex_);
    std::deque<Item> known_ KIVO_GUARDED_BY(mutex_);
};

}  // namespace kivo::platform
