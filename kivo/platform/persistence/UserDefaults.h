#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "kivo/platform/base/Data.h"
#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/persistence/DatabaseFile.h"

namespace kivo::platform {

/// The application's small persistent values, by key. Reads and writes go to a table in memory,
/// which is loaded on the first of them and shared by all threads; a background commit takes
/// changes to disk. Where the disk cannot be read or written the table goes on alone, and what is
/// uncommitted is tried again with the next change. What another process writes is seen at the next
/// launch. A forked child reads nothing and writes nothing.
class UserDefaults {
public:
    /// Changes that become visible, and durable, together. Setters are named by type, since a
    /// literal would pick the wrong overload.
    class Changes {
    public:
        void setBool(std::string key, bool value);
        void setString(std::string key, std::string value);
        void setData(std::string key, Data value);
        void remove(std::string key);

    private:
        friend class UserDefaults;
        struct Bytes {
            Data content;
            bool operator==(const Bytes&) const = default;
        };
        using Value = std::variant<bool, std::string, Bytes>;

        std::vector<std::pair<std::string, std::optional<Value>>>
            list_;  // In order; empty removes.
    };

    /// Has a job run later, once, on any thread.
    using Schedule = std::function<void(std::function<void()> job)>;

    /// The application's own, committed on the task pool; never destroyed. The file is
    /// <state directory>/kivo/<bundle identifier, or program's name>/defaults.db.
    static UserDefaults& standard();

    /// Without a file everything stays in memory. The object must outlive the jobs that it has
    /// scheduled.
    UserDefaults(std::optional<std::filesystem::path> file, Schedule scheduleCommit);

    /// False when the key is absent or holds no Boolean.
    bool boolean(std::string_view key);
    /// Empty when the key is absent or holds no text.
    std::optional<std::string> string(std::string_view key);
    /// Empty when the key is absent or holds no data.
    std::optional<Data> data(std::string_view key);

    /// Applies what `make` puts down, all in one step after it has returned, and has it committed
    /// soon.
    void update(const std::function<void(Changes&)>& make);

private:
    using Value = Changes::Value;
    using Table = std::map<std::string, Value, std::less<>>;
    using Edits = std::map<std::string, std::optional<Value>, std::less<>>;

    template <typename T>
    std::optional<T> value(std::string_view key);
    void load();
    void readFile();
    static void readRow(const Statement& row, Table& table);
    bool apply(Changes& changes);
    void applyOne(const std::string& key, std::optional<Value> value) KIVO_REQUIRES(mutex_);
    void schedule();
    void noteUnscheduled();
    void commit();
    Edits takeEdits();
    bool write(const Edits& edits);
    Edits wholeTable();
    bool giveBack(Edits edits);
    static void bindValue(Statement& statement, const Value& value);

    const Schedule scheduleCommit_;
    std::optional<DatabaseFile> file_;  // Used by the load, then by one commit at a time.

    std::once_flag loaded_;
    Mutex mutex_;
    bool isFileKnown_ KIVO_GUARDED_BY(mutex_) = false;  // Whether the load could read it.
    Table table_ KIVO_GUARDED_BY(mutex_);
    Edits uncommitted_ KIVO_GUARDED_BY(mutex_);
    bool commitIsScheduled_ KIVO_GUARDED_BY(mutex_) = false;
};

}  // namespace kivo::platform
