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

/// The application's small persistent values, by key. Reads and writes use a table in memory, which
/// is loaded on first use and shared by all threads; a background commit writes changes to disk. If
/// the disk cannot be read or written, the table is used alone, and the next change tries again to
/// commit. Values that another process writes are seen at the next launch. A forked child reads
/// nothing and writes nothing.
class UserDefaults {
public:
    /// Changes that become visible, and durable, together. The setters are named by type, since a
    /// string literal would pick a bool overload.
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

        // In order; an empty value removes the key.
        std::vector<std::pair<std::string, std::optional<Value>>> list_;
    };

    /// Arranges for `commit` to run later, once, on any thread.
    using Schedule = std::function<void(std::function<void()> commit)>;

    /// The application's own, committed on the helper; never destroyed. The file is
    /// <state directory>/kivo/<bundle identifier, or program's name>/defaults.db.
    static UserDefaults& standard();

    /// Without a file everything stays in memory. The object must outlive the commits that it has
    /// scheduled.
    UserDefaults(std::optional<std::filesystem::path> file, Schedule scheduleCommit);

    /// Has the helper load the table before anything that is launched from now on runs, so that the
    /// loop does not wait for the disk.
    void loadAhead();

    /// False when the key is absent or holds no Boolean.
    bool boolean(std::string_view key);
    /// Empty when the key is absent or holds no text.
    std::optional<std::string> string(std::string_view key);
    /// Empty when the key is absent or holds no data.
    std::optional<Data> data(std::string_view key);

    /// Applies the changes that `block` records, all in one step after it has returned, and
    /// schedules a commit. Throws what `block` or the scheduling throws.
    void update(const std::function<void(Changes&)>& block);

private:
    using Value = Changes::Value;
    using Table = std::map<std::string, Value, std::less<>>;
    using Edits = std::map<std::string, std::optional<Value>, std::less<>>;

    template <typename T>
    std::optional<T> value(std::string_view key);
    void load();
    void readFile();
    static std::size_t readRow(const Statement& row, Table& table);
    static std::size_t sizeOf(std::string_view key, const Value& value);
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
    bool isFileKnown_ KIVO_GUARDED_BY(mutex_) = false;  // Whether the load could read all.
    Table table_ KIVO_GUARDED_BY(mutex_);
    Edits uncommitted_ KIVO_GUARDED_BY(mutex_);
    bool commitIsScheduled_ KIVO_GUARDED_BY(mutex_) = false;
};

}  // namespace kivo::platform
