#include "kivo/platform/persistence/UserDefaults.h"

#include <exception>

#include "kivo/platform/system/ApplicationFolder.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/Loop.h"

namespace kivo::platform {

namespace {

constexpr const char* schema =
    "CREATE TABLE IF NOT EXISTS defaults (key TEXT PRIMARY KEY NOT NULL, value)";

std::optional<std::filesystem::path> standardFile() {
    const auto folder = applicationStateFolder();
    return folder ? std::optional(*folder / "defaults.db") : std::nullopt;
}

}  // namespace

void UserDefaults::Changes::setBool(std::string key, bool value) {
    list_.emplace_back(std::move(key), value);
}

void UserDefaults::Changes::setString(std::string key, std::string value) {
    list_.emplace_back(std::move(key), std::move(value));
}

void UserDefaults::Changes::setData(std::string key, Data value) {
    list_.emplace_back(std::move(key), Bytes{std::move(value)});
}

void UserDefaults::Changes::remove(std::string key) {
    list_.emplace_back(std::move(key), std::nullopt);
}

UserDefaults& UserDefaults::standard() {
    const auto commitOnHelper = [](std::function<void()> commit) {
        Loop::shared().submit(std::move(commit), Work::Kind::commit);
    };
    static UserDefaults& application = *new UserDefaults(standardFile(), commitOnHelper);
    return application;
}

UserDefaults::UserDefaults(std::optional<std::filesystem::path> file, Schedule scheduleCommit)
    : scheduleCommit_(std::move(scheduleCommit)) {
    if (file) file_.emplace(*std::move(file), schema);
}

bool UserDefaults::boolean(std::string_view key) { return value<bool>(key).value_or(false); }

std::optional<std::string> UserDefaults::string(std::string_view key) {
    return value<std::string>(key);
}

std::optional<Data> UserDefaults::data(std::string_view key) {
    auto bytes = value<Changes::Bytes>(key);
    return bytes ? std::optional(std::move(bytes->content)) : std::nullopt;
}

template <typename T>
std::optional<T> UserDefaults::value(std::string_view key) {
    if (!Process::isOwn()) return std::nullopt;
    load();
    const Lock lock(mutex_);
    const auto found = table_.find(key);
    const T* content = found != table_.end() ? std::get_if<T>(&found->second) : nullptr;
    return content != nullptr ? std::optional(*content) : std::nullopt;
}

void UserDefaults::update(const std::function<void(Changes&)>& block) {
    if (!Process::isOwn()) return;
    load();
    Changes changes;
    block(changes);
    if (apply(changes)) schedule();
}

/// Returns whether a commit is due and not yet scheduled.
bool UserDefaults::apply(Changes& changes) {
    const Lock lock(mutex_);
    for (auto& [key, value] : changes.list_) applyOne(key, std::move(value));
    return file_ && !uncommitted_.empty() && !std::exchange(commitIsScheduled_, true);
}

/// A value that the table already holds needs no commit if the table is known to match the file.
void UserDefaults::applyOne(const std::string& key, std::optional<Value> value) {
    const auto present = table_.find(key);
    const bool isSame = present != table_.end() ? value == present->second : !value;
    if (isSame && isFileKnown_) return;
    if (value) {
        table_.insert_or_assign(key, *value);
    } else {
        table_.erase(key);
    }
    uncommitted_.insert_or_assign(key, std::move(value));
}

void UserDefaults::schedule() {
    try {
        scheduleCommit_([this] { commit(); });
    } catch (...) {
        noteUnscheduled();
        throw;
    }
}

void UserDefaults::noteUnscheduled() {
    const Lock lock(mutex_);
    commitIsScheduled_ = false;
}

}  // namespace kivo::platform
