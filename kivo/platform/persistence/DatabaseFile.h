#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "kivo/platform/persistence/Database.h"

namespace kivo::platform {

/// A private database file and the one connection to it, which stays open after its first use. If
/// SQLite reports the file as damaged twice, the second time on a new connection, the file is set
/// aside as "<name>.damaged-N". A path that holds anything but a regular file is left alone. If a
/// permission is missing, one line on the console says so. For one thread at a time.
class DatabaseFile {
public:
    using Block = std::function<void(Database&)>;

    /// `schema` is SQL that creates the tables that are missing. The disk is not touched before the
    /// first read or write.
    DatabaseFile(std::filesystem::path path, const char* schema);

    /// Runs `block`, possibly twice. Creates nothing. Throws DatabaseError on any failure,
    /// including a missing file.
    void read(const Block& block);

    /// Runs `block` in one transaction, possibly more than once. Creates the file (mode 0600) and
    /// its directories (0700) if they are missing, independent of the umask; removes the
    /// permissions of others from an existing file of this user; starts a new file after setting
    /// one aside. Throws DatabaseError, which leaves the file as it was.
    void write(const Block& block);

private:
    Database& connection();
    void perform(const Block& block);
    void performOnFreshConnection(const Block& block);
    void reportMissingPermission() noexcept;

    std::filesystem::path path_;
    const char* schema_;
    std::optional<Database> connection_;
    bool isReported_ = false;
};

}  // namespace kivo::platform
