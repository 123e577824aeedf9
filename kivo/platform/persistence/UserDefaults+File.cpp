// Reading the table from its file, once, and committing changes to it.

#include <exception>
#include <utility>

#include "kivo/platform/persistence/UserDefaults.h"
#include "kivo/platform/tasks/Loop.h"

namespace kivo::platform {

namespace {

constexpr std::size_t largestLoad = 16 << 20;
constexpr std::size_t rowOverhead = 256;  // About what a row adds to its content in memory.

/// Whether the file has only just been created; marks it as no longer new.
bool isFresh(Database& database) {
    Statement version = database.prepare("PRAGMA user_version");
    const bool isUnmarked = version.step() && version.integer(0) == 0;
    version.run();
    if (isUnmarked) database.execute("PRAGMA user_version = 1");
    return isUnmarked;
}

}  // namespace

void UserDefaults::load() {
    std::call_once(loaded_, [this] { readFile(); });
}

void UserDefaults::loadAhead() {
    Loop::shared().submit([this] { load(); }, Work::Kind::preparation);
}

/// A file that is missing, locked, unreadable or has another schema leaves the table empty. Of a
/// file with more rows than Kivo writes, the latest are read.
void UserDefaults::readFile() {
    if (!file_) return;
    Table table;
    std::size_t size = 0;
    const auto readAll = [&](Database& database) {
        table.clear();
        Statement rows = database.prepare("SELECT key, value FROM defaults ORDER BY rowid DESC");
        for (size = 0; size < largestLoad && rows.step();) size += readRow(rows, table);
    };
    try {
        file_->read(readAll);
    } catch (const std::exception&) {
        return;
    }
    const Lock lock(mutex_);
    table_ = std::move(table);
    isFileKnown_ = size < largestLoad;
}

/// Returns the row's size.
std::size_t UserDefaults::readRow(const Statement& row, Table& table) {
    const auto keep = [&](Value value) {
        Data key = row.bytes(0);
        const std::size_t size = sizeOf(key, value);
        table.try_emplace(std::move(key), std::move(value));
        return size;
    };
    switch (row.type(1)) {
        case Statement::Type::integer: return keep(row.integer(1) != 0);
        case Statement::Type::text: return keep(row.bytes(1));
        case Statement::Type::blob: return keep(Changes::Bytes{row.bytes(1)});
        default: return rowOverhead;  // This version never writes other types.
    }
}

/// Of a row, in bytes.
std::size_t UserDefaults::sizeOf(std::string_view key, const Value& value) {
    const std::size_t size = key.size() + rowOverhead;
    if (const auto* text = std::get_if<std::string>(&value)) return size + text->size();
    if (const auto* bytes = std::get_if<Changes::Bytes>(&value))
        return size + bytes->content.size();
    return size;
}

void UserDefaults::commit() {
    for (Edits edits = takeEdits(); !edits.empty(); edits = takeEdits())
        if (!write(edits) && !giveBack(std::move(edits))) return;
}

UserDefaults::Edits UserDefaults::takeEdits() {
    const Lock lock(mutex_);
    commitIsScheduled_ = !uncommitted_.empty();
    return std::exchange(uncommitted_, {});
}

/// Puts back edits that could not be committed; newer edits of the same keys win. Returns whether
/// there are newer edits, which deserve an attempt of their own.
bool UserDefaults::giveBack(Edits edits) {
    const Lock lock(mutex_);
    commitIsScheduled_ = !uncommitted_.empty();
    uncommitted_.merge(edits);
    return commitIsScheduled_;
}

/// A value that is too large for the file stays in memory, and the file forgets the one before it.
bool UserDefaults::write(const Edits& edits) {
    const auto writeAll = [&](Database& database) {
        const Edits wanted = isFresh(database) ? wholeTable() : edits;
        Statement set =
            database.prepare("INSERT OR REPLACE INTO defaults (key, value) VALUES (?, ?)");
        Statement remove = database.prepare("DELETE FROM defaults WHERE key = ?");
        for (const auto& [key, value] : wanted) {
            const bool isKept = value && sizeOf(key, *value) <= Database::largestValue;
            Statement& statement = isKept ? set : remove;
            statement.bindText(1, key);
            if (isKept) bindValue(statement, *value);
            statement.run();
        }
    };
    try {
        file_->write(writeAll);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

/// The edits for a new file, which replaces one that was lost or set aside.
UserDefaults::Edits UserDefaults::wholeTable() {
    const Lock lock(mutex_);
    return {table_.begin(), table_.end()};
}

void UserDefaults::bindValue(Statement& statement, const Value& value) {
    constexpr int parameter = 2;
    if (const auto* text = std::get_if<std::string>(&value)) {
        statement.bindText(parameter, *text);
    } else if (const auto* bytes = std::get_if<Changes::Bytes>(&value)) {
        statement.bindBlob(parameter, bytes->content);
    } else {
        statement.bind(parameter, std::get<bool>(value) ? 1 : 0);
    }
}

}  // namespace kivo::platform
