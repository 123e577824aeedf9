#include "kivo/platform/persistence/Keychain.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <ratio>
#include <utility>

#include "kivo/platform/system/Environment.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/Loop.h"

namespace kivo::platform {

namespace {

constexpr const char* schema =
    "CREATE TABLE IF NOT EXISTS items (service TEXT NOT NULL, account TEXT NOT NULL, data BLOB NOT "
    "NULL, "
    "PRIMARY KEY (service, account))";

std::optional<std::filesystem::path> standardFile() {
    const auto& directory = Environment::current().dataDirectory;
    return directory ? std::optional(*directory / "kivo" / "keychain.db") : std::nullopt;
}

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * std::nano::den + time.tv_nsec;
}

/// The kernel stamps files with a clock that stands still for some milliseconds: of two changes
/// shortly after each other, the second may leave no trace.
bool isRecent(std::int64_t modified) {
    using namespace std::chrono_literals;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return now - std::chrono::nanoseconds(modified) < 20ms;
}

}  // namespace

Keychain& Keychain::standard() {
    static Keychain& user = *new Keychain(standardFile());
    return user;
}

Keychain::Keychain(std::optional<std::filesystem::path> file) : path_(std::move(file)) {
    if (path_) file_.emplace(*path_, schema);
}

std::optional<Data> Keychain::copyMatching(std::string_view service, std::string_view account) {
    if (!Process::isOwn()) return std::nullopt;
    try {
        {
            const Lock lock(mutex_);
            const Item* item = find(service, account);
            if (item != nullptr && (Loop::isCurrent() || holds(*item))) return item->data;
        }
        return look(service, account);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

bool Keychain::lookAhead(std::string_view service, std::string_view account) {
    if (!Process::isOwn()) return false;
    {
        const Lock lock(mutex_);
        Item* item = find(service, account);
        if (item != nullptr && holdsForIntake(*item)) return false;
    }
    Loop::shared().submit([this, service = std::string(service),
                           account = std::string(account)] { look(service, account); },
                          Work::Kind::preparation);
    return true;
}

Keychain::Item* Keychain::find(std::string_view service, std::string_view account) {
    const auto found = std::find_if(items_.begin(), items_.end(), [&](const Item& item) {
        return item.service == service && item.account == account;
    });
    return found == items_.end() ? nullptr : &*found;
}

Keychain::Item& Keychain::findOrMake(std::string_view service, std::string_view account) {
    Item* item = find(service, account);
    if (item != nullptr) return *item;
    return items_.emplace_back(Item{
        .service = std::string(service), .account = std::string(account), .data = {}, .seen = {}});
}

/// Whether the latest look at the disk would find the same today.
bool Keychain::holds(const Item& item) const {
    return item.pendingAdditions > 0 || (item.seen && item.seen == fileState());
}

/// The file is asked once for all the work that the loop has taken in together.
bool Keychain::holdsForIntake(Item& item) const {
    const unsigned intake = Loop::isCurrent() ? Loop::shared().intake() : 0;
    if (intake != 0 && item.intake == intake) return true;
    if (!holds(item)) return false;
    item.intake = intake;
    return true;
}

std::optional<Keychain::FileState> Keychain::fileState() const {
    struct stat found{};
    if (!path_) return FileState();
    if (stat(path_->c_str(), &found) != 0) {
        const bool isAbsent = errno == ENOENT || errno == ENOTDIR;
        return isAbsent ? std::optional(FileState()) : std::nullopt;
    }
    return FileState{.device = found.st_dev,
                     .inode = found.st_ino,
                     .size = found.st_size,
                     .modified = nanoseconds(found.st_mtim)};
}

std::optional<Data> Keychain::look(std::string_view service, std::string_view account) {
    const Lock file(fileMutex_);
    const auto state = fileState();
    std::optional<Data> found;
    bool isFileRead = state == FileState();  // There is none.
    try {
        found = read(service, account);
        isFileRead = true;
    } catch (const DatabaseError&) {
    }
    const Lock lock(mutex_);
    Item& item = findOrMake(service, account);
    if (isFileRead && item.pendingAdditions == 0) {
        item.data = std::move(found);
        item.seen.reset();
        if (state && !isRecent(state->modified)) item.seen = state;
    }
    return item.data;
}

std::optional<Data> Keychain::read(std::string_view service, std::string_view account) {
    std::optional<Data> found;
    if (!file_) return found;
    file_->read([&](Database& database) {
        Statement items =
            database.prepare("SELECT data FROM items WHERE service = ? AND account = ?");
        items.bindText(1, service);
        items.bindText(2, account);
        if (items.step() && items.type(0) == Statement::Type::blob) found = items.bytes(0);
    });
    return found;
}

void Keychain::addLater(std::string service, std::string account, Data data,
                        std::function<void(Status)> failed) {
    noteAddition(service, account, data);
    try {
        Loop::shared().submit(
            [this, service, account, data, failed = std::move(failed)] {
                const Status status = add(service, account, data);
                noteAdded(service, account, data, status);
                if (status != success) failed(status);
            },
            Work::Kind::commit);
    } catch (...) {
        noteAdded(service, account, data, notAvailable);
        throw;
    }
}

void Keychain::noteAddition(std::string_view service, std::string_view account, const Data& data) {
    const Lock lock(mutex_);
    Item& item = findOrMake(service, account);
    if (!item.data) item.data = data;
    ++item.pendingAdditions;
}

void Keychain::noteAdded(std::string_view service, std::string_view account, const Data& data,
                         Status status) {
    const Lock lock(mutex_);
    Item& item = findOrMake(service, account);
    --item.pendingAdditions;
    // What is known need not be looked up, which a lock of another process could hold up.
    item.seen = status == success ? fileState() : std::nullopt;
    if (status != success && item.data == data) item.data.reset();
}

Keychain::Status Keychain::add(std::string_view service, std::string_view account,
                               std::string_view data) {
    if (!Process::isOwn()) return notAvailable;
    const auto insert = [&](Database& database) {
        Statement item =
            database.prepare("INSERT INTO items (service, account, data) VALUES (?, ?, ?)");
        item.bindText(1, service);
        item.bindText(2, account);
        item.bindBlob(3, data);
        item.run();
    };
    try {
        const Lock lock(fileMutex_);
        if (!file_) return notAvailable;
        file_->write(insert);
        return success;
    } catch (const DatabaseError& error) {
        return error.saysDuplicate() ? duplicateItem : ioError;
    } catch (const std::exception&) {
        return ioError;
    }
}

}  // namespace kivo::platform
