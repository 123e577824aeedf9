#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "kivo/platform/base/Data.h"
#include "kivo/platform/base/Error.h"

struct sqlite3;
struct sqlite3_stmt;

namespace kivo::platform {

/// An error reported by SQLite, with its extended result code.
class DatabaseError : public Error {
public:
    explicit DatabaseError(int code);

    /// Of a file that cannot be opened.
    static DatabaseError cannotOpen();

    int code() const noexcept { return code_; }
    bool saysDamaged() const noexcept;
    bool saysDuplicate() const noexcept;

private:
    int code_;
};

/// One prepared statement, which must not outlive its database. Parameters count from 1, columns
/// from 0.
class Statement {
public:
    enum class Type { integer, real, text, blob, null };

    void bind(int parameter, std::int64_t value);
    void bindText(int parameter, std::string_view text);
    void bindBlob(int parameter, std::string_view bytes);

    /// Moves to the next row; false if there are no more rows.
    bool step();

    /// Runs to completion and resets the statement for other parameters.
    void run();

    Type type(int column) const;
    std::int64_t integer(int column) const;
    Data bytes(int column) const;

private:
    friend class Database;

    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };

    explicit Statement(sqlite3_stmt* statement) : statement_(statement) {}

    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

/// One connection to an existing file, with a rollback journal and full synchronisation; it waits
/// at most one second for another connection's lock. Read-only if the file is. For one thread at a
/// time. Every operation may throw DatabaseError.
///
/// The file may be anybody's work: it runs no triggers, views, virtual tables or functions, and
/// statements have a limit of memory and of processor time.
class Database {
public:
    /// The size in bytes of the largest text or blob that is read or written.
    static constexpr int largestValue = 16 << 20;

    explicit Database(const std::filesystem::path& file);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    /// Gives the statements that follow on this thread one second of its processor time together;
    /// those of a new connection have it already. Waiting for locks and disks does not count.
    void restartTimer() noexcept;

    void execute(const char* sql);
    Statement prepare(std::string_view sql);

    /// Whether the file is no longer at its path.
    bool hasMoved();

private:
    struct Closer {
        void operator()(sqlite3* connection) const noexcept;
    };

    static int isOverdue(void* database) noexcept;
    void distrustFile();

    std::unique_ptr<sqlite3, Closer> connection_;
    std::chrono::nanoseconds deadline_{};  // Of the thread's processor time.
};

/// Everything between construction and `commit` takes effect, or nothing does.
class Transaction {
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

private:
    Database& database_;
    bool isOpen_ = true;
};

}  // namespace kivo::platform
