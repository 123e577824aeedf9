#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/platform/ChildProcess.h"

namespace kivo::tests {

inline void writeFile(const std::filesystem::path& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
}

inline std::string readFile(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline mode_t modeOf(const std::filesystem::path& file) {
    struct stat found{};
    EXPECT_EQ(stat(file.c_str(), &found), 0) << file;
    return found.st_mode & 07777U;
}

/// Runs SQL as another program would.
inline void runSql(const std::filesystem::path& file, const char* sql) {
    sqlite3* connection = nullptr;
    EXPECT_EQ(sqlite3_open(file.c_str(), &connection), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(connection, sql, nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(connection);
    sqlite3_close(connection);
}

/// Another process that has done `sql`, its transaction still open, and is killed when this ends.
class ForeignLock {
public:
    explicit ForeignLock(const std::filesystem::path& file, const char* sql = "BEGIN EXCLUSIVE")
        : holder_([&](const ChildProcess& self) {
              sqlite3* connection = nullptr;
              sqlite3_open(file.c_str(), &connection);
              EXPECT_EQ(sqlite3_exec(connection, sql, nullptr, nullptr, nullptr), SQLITE_OK);
              self.signal();
              pause();
          }) {
        EXPECT_TRUE(holder_.awaitSignal());
    }

    ~ForeignLock() { holder_.kill(); }
    ForeignLock(const ForeignLock&) = delete;
    ForeignLock& operator=(const ForeignLock&) = delete;

private:
    ChildProcess holder_;
};

/// Content that SQLite recognises as no database of its own, and one that it finds broken only when
/// it looks inside.
inline const std::string& noDatabase() {
    static const std::string content(4096, 'x');
    return content;
}

inline std::string brokenInside(const std::filesystem::path& database) {
    std::string content = readFile(database);
    return content.replace(100, content.size() - 100, content.size() - 100, '\xEE');
}

}  // namespace kivo::tests
