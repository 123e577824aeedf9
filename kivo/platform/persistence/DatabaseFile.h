#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "kivo/platform/persistence/Database.h"

namespace kivo::platform {

/// A private database at its place on disk, and the one connection to it, kept open once it is. A
/// file that SQLite calls damaged twice, the second time on a fresh connection, is set aside as
/// "<name>.damaged-N". For one thread at a time.
class DatabaseFile {
public:
    using Work = std::function<void(Database&)>;

    /// `schema` is SQL that creates whatever is missing. Nothing is touched before the first read
    /// or write.
    DatabaseFile(std::filesystem::path path, const char* schema);

    /// Runs `work`, twice perhaps. Creates nothing: without a file it throws DatabaseError, like
    /// any failure.
    void read(const Work& work);

    /// Runs `work` in one transaction, more than once perhaps; creates the file (mode 0600) and the
    /// directories on its way (0700), whatever the umask, when they are missing. Begins a fresh
    /// file after setting one aside. A DatabaseError leaves the file as it was.
    void write(const Work& work);

private:
    Database& connection();
    void perform(const Work& work);
    void performOnFreshConnection(const Work& work);

    std::filesystem::path path_;
    const char* schema_;
    std::optional<Database> connection_;
};

}  // namespace kivo::platform
