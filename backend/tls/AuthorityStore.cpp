#include "backend/tls/AuthorityStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

namespace {

namespace fs = std::filesystem;
constexpr ::mode_t ownerOnly = 0600;
constexpr ::mode_t readable = 0644;

std::string textOf(const fs::path& file) { return fs::exists(file) ? contentOf(file) : ""; }

/// Another user could have the key, or change later what clients trust.
void requireOwn(const fs::path& file) {
    struct stat info{};
    if (stat(file.c_str(), &info) != 0 || info.st_uid == geteuid()) return;
    throw std::runtime_error(file.string() + " belongs to another user (" +
                             std::to_string(info.st_uid) +
                             "); remove it, or set XDG_DATA_HOME to a folder that you own");
}

void prepare(const fs::path& folder) {
    fs::create_directories(folder);
    requireOwn(folder);
    fs::permissions(folder, fs::perms::owner_all);
}

/// The lock is held until the descriptor is closed.
FileDescriptor lockIn(const fs::path& folder) {
    const fs::path file = folder / "lock";
    FileDescriptor lock(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, ownerOnly), file);
    while (flock(lock.number(), LOCK_EX) != 0) {
        if (errno != EINTR) throwLastError(file);
    }
    return lock;
}

/// Readers see either the old text or the whole new one, even after a crash.
void replace(const fs::path& file, const std::string& text, ::mode_t mode) {
    const fs::path draft = file.string() + ".new";
    fs::remove(draft);
    const FileDescriptor output(open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode),
                                draft);
    output.write(text);
    if (fsync(output.number()) != 0) throwLastError(draft);
    fs::rename(draft, file);
}

Authority authorityIn(const fs::path& file) {
    const auto text = textOf(file);
    auto kept = Authority::read(text);
    auto authority = kept ? std::move(*kept) : Authority::make();
    if (authority.pem() != text) replace(file, authority.pem(), ownerOnly);
    return authority;
}

fs::path dataHome() {
    const char* xdg = std::getenv("XDG_DATA_HOME");
    if (xdg && fs::path(xdg).is_absolute()) return xdg;
    const char* home = std::getenv("HOME");
    if (home && *home) return fs::path(home) / ".local/share";
    throw std::runtime_error("cannot store the certificate authority: set HOME or XDG_DATA_HOME");
}

StoredAuthority openIn(const fs::path& folder) {
    prepare(folder);
    const auto lock = lockIn(folder);
    const auto file = folder / "authority.pem";
    const auto trustFile = folder / "ca.pem";
    for (const auto& each : {file, trustFile}) requireOwn(each);
    auto authority = authorityIn(file);
    if (textOf(trustFile) != authority.certificate())
        replace(trustFile, authority.certificate(), readable);
    return {.authority = std::move(authority), .trustFile = trustFile};
}

}  // namespace

StoredAuthority openAuthorityStore(const fs::path& folder) {
    try {
        return openIn(folder);
    } catch (const std::system_error& error) {
        throw std::runtime_error(
            "cannot store the certificate authority: " + std::string(error.what()) +
            "; fix that, or set XDG_DATA_HOME to a folder that you own");
    }
}

fs::path authorityFolder() { return dataHome() / "kivo-dev"; }

}  // namespace kivo::backend
