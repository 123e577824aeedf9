#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>

#include "kivo/platform/base/Data.h"
#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/persistence/DatabaseFile.h"

namespace kivo::platform {

/// The user's secrets, shared by all of the user's programs. What a look at the disk found holds
/// for as long as the file stays unchanged; all other calls read or write the disk and may wait a
/// second for it, except on the loop, where the latest look holds. Any number of threads and
/// processes may call at the same time.
class Keychain {
public:
    /// The modelled platform's status codes.
    enum Status : int { success = 0, ioError = -36, notAvailable = -25291, duplicateItem = -25299 };

    /// <data directory>/kivo/keychain.db; never destroyed.
    static Keychain& standard();

    /// Without a file, lookups find nothing and additions return `notAvailable`.
    explicit Keychain(std::optional<std::filesystem::path> file);

    /// The item's data; empty if there is none. If the disk cannot be read, an earlier look holds.
    /// Creates no file.
    std::optional<Data> copyMatching(std::string_view service, std::string_view account);

    /// Has the helper look at the disk before anything that is launched from now on runs, unless
    /// the latest look still holds; returns whether it has. Throws std::bad_alloc or
    /// std::system_error.
    bool lookAhead(std::string_view service, std::string_view account);

    /// Adds an item unless there already is one with that service and account. On any status other
    /// than `success` nothing has changed.
    Status add(std::string_view service, std::string_view account, std::string_view data);

    /// The same on the helper, which a normal exit waits for. The item is found at once; if it
    /// turns out that it cannot be added, it no longer is, and `failed` receives the status on the
    /// helper.
    void addLater(std::string service, std::string account, Data data,
                  std::function<void(Status)> failed);

private:
    /// Differs whenever the file's content does.
    struct FileState {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        std::int64_t modified = 0;  // Nanoseconds.

        bool operator==(const FileState&) const = default;
    };

    /// What is known of an item, or of its absence.
    struct Item {
        std::string service;
        std::string account;
        std::optional<Data> data;
        std::optional<FileState> seen;  // The file at the latest look; empty if it may yet change.
        unsigned intake = 0;            // The loop's, when the file was last unchanged.
        int pendingAdditions = 0;
    };

    Item* find(std::string_view service, std::string_view account) KIVO_REQUIRES(mutex_);
    Item& findOrMake(std::string_view service, std::string_view account) KIVO_REQUIRES(mutex_);
    bool holds(const Item& item) const KIVO_REQUIRES(mutex_);
    bool holdsForIntake(Item& item) const KIVO_REQUIRES(mutex_);
    /// All zero if there is no file; empty if that cannot be determined.
    std::optional<FileState> fileState() const;
    std::optional<Data> look(std::string_view service, std::string_view account);
    std::optional<Data> read(std::string_view service, std::string_view account)
        KIVO_REQUIRES(fileMutex_);
    void noteAddition(std::string_view service, std::string_view account, const Data& data);
    void noteAdded(std::string_view service, std::string_view account, const Data& data,
                   Status status);

    const std::optional<std::filesystem::path> path_;

    Mutex fileMutex_;  // Held for as long as the disk takes.
    std::optional<DatabaseFile> file_ KIVO_GUARDED_BY(fileMutex_);

    Mutex mutex_;
    std::list<Item> items_ KIVO_GUARDED_BY(mutex_);
};

}  // namespace kivo::platform
