#include "kivo/platform/persistence/DatabaseFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>

#include "kivo/platform/Console.h"

namespace kivo::platform {

namespace {

using Path = std::filesystem::path;

constexpr mode_t directoryMode = 0700;
constexpr mode_t fileMode = 0600;
constexpr int mostSetAside = 99;

/// Creates the missing directories; existing ones stay as they are. The chmod restores permissions
/// that the umask took away.
void makeDirectories(const Path& directory) {
    if (mkdir(directory.c_str(), directoryMode) != 0) {
        if (errno != ENOENT || !directory.has_relative_path()) return;
        makeDirectories(directory.parent_path());
        if (mkdir(directory.c_str(), directoryMode) != 0) return;
    }
    chmod(directory.c_str(), directoryMode);
}

/// Does not open the file: closing a descriptor would drop the locks that another connection of
/// this process holds on it.
bool makeEmptyFile(const Path& file) {
    if (mknod(file.c_str(), S_IFREG | fileMode, 0) != 0) return false;
    chmod(file.c_str(), fileMode);
    return true;
}

void makeIfMissing(const Path& file) {
    if (makeEmptyFile(file) || errno != ENOENT) return;
    makeDirectories(file.parent_path());
    makeEmptyFile(file);
}

using Identity = std::optional<std::pair<dev_t, ino_t>>;

Identity identityOf(const Path& file) {
    struct stat found{};
    if (stat(file.c_str(), &found) != 0) return std::nullopt;
    return std::pair(found.st_dev, found.st_ino);
}

bool renameToFreeName(const Path& from, const Path& to) {
    return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
}

Path suffixed(Path file, const std::string& suffix) { return file += suffix; }

/// Renames both files, using the first number that is free for both. The journal goes first: if it
/// stayed, SQLite would play it back into the new file.
void setAside(const Path& file) {
    for (int number = 1; number <= mostSetAside; ++number) {
        const Path aside = suffixed(file, ".damaged-" + std::to_string(number));
        if (identityOf(aside)) continue;
        const bool isBlocked =
            !renameToFreeName(suffixed(file, "-journal"), suffixed(aside, "-journal")) &&
            errno == EEXIST;
        if (isBlocked) continue;
        if (renameToFreeName(file, aside) || errno != EEXIST) return;
    }
}

/// SQLite would wait without end for the content of a pipe.
void requireRegularFiles(const Path& file) {
    for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
        struct stat found{};
        if (stat((file.native() + suffix).c_str(), &found) == 0 && !S_ISREG(found.st_mode))
            throw DatabaseError::cannotOpen();
    }
}

/// Goes by the path: see makeEmptyFile.
void makePrivate(const Path& file) {
    struct stat found{};
    const bool isOurs =
        lstat(file.c_str(), &found) == 0 && S_ISREG(found.st_mode) && found.st_uid == geteuid();
    if (isOurs && (found.st_mode & ACCESSPERMS & ~fileMode) != 0) chmod(file.c_str(), fileMode);
}

/// Whether the file, or the folder in which it would be created, is closed to this user. A
/// read-only disk is another matter.
bool isForbidden(const Path& file) {
    if (eaccess(file.c_str(), R_OK | W_OK) == 0) return false;
    if (errno == ENOENT && eaccess(file.parent_path().c_str(), W_OK | X_OK) == 0) return false;
    return errno == EACCES;
}

}  // namespace

DatabaseFile::DatabaseFile(std::filesystem::path path, const char* schema)
    : path_(std::move(path)), schema_(schema) {}

void DatabaseFile::read(const Block& block) { perform(block); }

void DatabaseFile::write(const Block& block) {
    const auto whole = [&](Database& database) {
        Transaction transaction(database);
        database.execute(schema_);
        block(database);
        transaction.commit();
    };
    makeIfMissing(path_);
    try {
        perform(whole);
    } catch (const DatabaseError& error) {
        if (!error.saysDamaged()) throw;
        makeIfMissing(path_);  // The damaged file has been set aside.
        perform(whole);
    }
}

Database& DatabaseFile::connection() {
    requireRegularFiles(path_);
    if (connection_ && connection_->hasMoved()) connection_.reset();
    if (!connection_) {
        makePrivate(path_);
        connection_.emplace(path_);
    }
    connection_->restartTimer();
    return *connection_;
}

void DatabaseFile::perform(const Block& block) {
    try {
        return block(connection());
    } catch (const DatabaseError& error) {
        connection_.reset();
        if (!error.saysDamaged()) {
            reportMissingPermission();
            throw;
        }
    }
    performOnFreshConnection(block);
}

void DatabaseFile::performOnFreshConnection(const Block& block) {
    const Identity suspect = identityOf(path_);
    try {
        block(connection());
    } catch (const DatabaseError& error) {
        connection_.reset();
        // Another process may have created a new file in the meantime: that one stays.
        if (error.saysDamaged() && identityOf(path_) == suspect) setAside(path_);
        throw;
    }
}

/// Otherwise, files that were first created under another user, such as root, would go unused
/// without a word.
void DatabaseFile::reportMissingPermission() noexcept try {
    if (isReported_ || !isForbidden(path_)) return;
    isReported_ = true;
    Console::print("Kivo has no permission to use " + path_.string() + ": nothing is stored there");
} catch (const std::exception&) {  // No memory for the line.
}

}  // namespace kivo::platform
