#include "kivo/platform/persistence/Database.h"

#include <sqlite3.h>

#include <array>
#include <ctime>
#include <utility>

namespace kivo::platform {

namespace {

constexpr int busyMilliseconds = 1000;
constexpr int primaryCodeMask = 0xFF;
constexpr std::chrono::seconds mostProcessorTime{1};
constexpr int instructionsBetweenLooks = 1000;

void check(int code) {
    if (code != SQLITE_OK) throw DatabaseError(code);
}

/// SQLite reads a null pointer as NULL, and an empty view may hold one.
const char* dataOf(std::string_view bytes) { return bytes.empty() ? "" : bytes.data(); }

std::chrono::nanoseconds processorTime() noexcept {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

}  // namespace

DatabaseError::DatabaseError(int code)
    : Error("database error " + std::to_string(code) + ": " + sqlite3_errstr(code)), code_(code) {}

DatabaseError DatabaseError::cannotOpen() { return DatabaseError(SQLITE_CANTOPEN); }

bool DatabaseError::saysDamaged() const noexcept {
    const int primary = code_ & primaryCodeMask;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

bool DatabaseError::saysDuplicate() const noexcept {
    return code_ == SQLITE_CONSTRAINT_PRIMARYKEY || code_ == SQLITE_CONSTRAINT_UNIQUE;
}

void Statement::Finalizer::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

void Statement::bind(int parameter, std::int64_t value) {
    check(sqlite3_bind_int64(statement_.get(), parameter, value));
}

void Statement::bindText(int parameter, std::string_view text) {
    check(sqlite3_bind_text64(statement_.get(), parameter, dataOf(text), text.size(),
                              SQLITE_TRANSIENT, SQLITE_UTF8));
}

void Statement::bindBlob(int parameter, std::string_view bytes) {
    check(sqlite3_bind_blob64(statement_.get(), parameter, dataOf(bytes), bytes.size(),
                              SQLITE_TRANSIENT));
}

bool Statement::step() {
    const int code = sqlite3_step(statement_.get());
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    throw DatabaseError(code);
}

void Statement::run() {
    while (step()) continue;
    check(sqlite3_reset(statement_.get()));
}

Statement::Type Statement::type(int column) const {
    switch (sqlite3_column_type(statement_.get(), column)) {
        case SQLITE_INTEGER: return Type::integer;
        case SQLITE_FLOAT: return Type::real;
        case SQLITE_TEXT: return Type::text;
        case SQLITE_BLOB: return Type::blob;
        default: return Type::null;
    }
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

Data Statement::bytes(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
    const int size = sqlite3_column_bytes(statement_.get(), column);
    return bytes != nullptr ? Data(bytes, static_cast<std::size_t>(size)) : Data();
}

void Database::Closer::operator()(sqlite3* connection) const noexcept {
    sqlite3_close_v2(connection);
}

Database::Database(const std::filesystem::path& file) {
    // The host may have made another VFS the default, but only this one has the locks that other
    // processes respect.
    constexpr const char* vfs = "unix";
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    sqlite3* opened = nullptr;
    const int code = sqlite3_open_v2(file.c_str(), &opened, flags, vfs);
    connection_.reset(opened);  // Also if opening failed.
    check(code);
    sqlite3_busy_timeout(opened, busyMilliseconds);
    distrustFile();
    // The file's header may name another size of the cache.
    execute("PRAGMA synchronous=FULL; PRAGMA cache_size=-2000");
}

void Database::distrustFile() {
    sqlite3* const opened = connection_.get();
    constexpr std::array switches{
        std::pair(SQLITE_DBCONFIG_DEFENSIVE, 1), std::pair(SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0),
        std::pair(SQLITE_DBCONFIG_ENABLE_TRIGGER, 0), std::pair(SQLITE_DBCONFIG_ENABLE_VIEW, 0)};
    for (const auto& [option, isOn] : switches)
        check(sqlite3_db_config(opened, option, isOn, nullptr));
    check(sqlite3_drop_modules(opened, nullptr));
    sqlite3_limit(opened, SQLITE_LIMIT_LENGTH, largestValue);
    sqlite3_limit(opened, SQLITE_LIMIT_FUNCTION_ARG, 0);  // A schema that calls one is damaged.
    restartTimer();
    sqlite3_progress_handler(opened, instructionsBetweenLooks, isOverdue, this);
}

void Database::restartTimer() noexcept { deadline_ = processorTime() + mostProcessorTime; }

int Database::isOverdue(void* database) noexcept {
    return processorTime() > static_cast<Database*>(database)->deadline_ ? 1 : 0;
}

void Database::execute(const char* sql) {
    check(sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr));
}

Statement Database::prepare(std::string_view sql) {
    sqlite3_stmt* prepared = nullptr;
    check(sqlite3_prepare_v2(connection_.get(), sql.data(), static_cast<int>(sql.size()), &prepared,
                             nullptr));
    return Statement(prepared);
}

bool Database::hasMoved() {
    int moved = 0;
    check(sqlite3_file_control(connection_.get(), nullptr, SQLITE_FCNTL_HAS_MOVED, &moved));
    return moved != 0;
}

Transaction::Transaction(Database& database) : database_(database) {
    database_.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (!isOpen_) return;
    try {
        database_.execute("ROLLBACK");
    } catch (const std::exception&) {  // SQLite has rolled back on its own, or has no memory.
    }
}

void Transaction::commit() {
    database_.execute("COMMIT");
    isOpen_ = false;
}

}  // namespace kivo::platform
