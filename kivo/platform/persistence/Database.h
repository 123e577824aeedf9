#pragma once

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

/// What SQLite reports, with its extended result code.
class DatabaseError : public Error {
public:
    explicit DatabaseError(int code);

    int code() const noexcept { return code_; }
    bool saysDamaged() const noexcept;
    bool saysDuplicate() const noexcept;

private:
    int code_;
};

/// One prepared statement; it ends before its database does. Parameters count from 1, columns from
/// 0.
class Statement {
public:
    enum class Type { integer, real, text, blob, null };

    void bind(int parameter, std::int64_t value);
    void bindText(int parameter, std::string_view text);
    void bindBlob(int parameter, std::string_view bytes);

    /// Goes to the next row; false when there is none.
    bool step();

    /// Runs to the end, and makes it ready for other parameters.
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
/// at most one second for another's lock. Read-only where the file is. For one thread at a time.
/// Every operation throws DatabaseError.
class Database {
public:
    explicit Database(const std::filesystem::path& file);

    void execute(const char* sql);
    Statement prepare(std::string_view sql);

    /// Whether the file is no longer at its path.
    bool hasMoved();

private:
    struct Closer {
        void operator()(sqlite3* connection) const noexcept;
    };

    std::unique_ptr<sqlite3, Closer> connection_;
};

/// Everything between its construction and `commit` is kept, or nothing is.
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
