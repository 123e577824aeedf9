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
/// changes, so an item that has been found is cached. All other calls read or write the disk and
/// may wait a second for it. Any number of threads and processes may call at the same time.
class Keychain {
public:
    /// The modelled platform's status codes.
    enum Status : int { success = 0, ioError = -36, notAvailable = -25291, duplicateItem = -25299 };

    /// <data directory>/kivo/keychain.db; never destroyed.
    static Keychain& standard();

    /// Without a file, lookups find nothing and additions return `notAvailable`.
    explicit Keychain(std::optional<std::filesystem::path> file);

    /// The item's data; empty if there is none or on any failure. Creates no file.
    std::optional<Data> copyMatching(std::string_view service, std::string_view account);

    /// Adds an item unless there already is one with that service and account. On any status other
    /// than `success` nothing has changed.
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
