#include "kivo/platform/http/TrustStore.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

#include "kivo/platform/system/Environment.h"

namespace kivo::platform {

namespace {

/// Whether `name` is one under which OpenSSL looks up a certificate: eight hexadecimal digits, a
/// dot and a number.
bool isHashedLink(std::string_view name) {
    constexpr std::size_t hashLength = 8;
    const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
    const auto isHexadecimal = [](unsigned char c) { return std::isxdigit(c) != 0; };
    return name.size() > hashLength + 1 && name[hashLength] == '.' &&
           std::all_of(name.begin(), name.begin() + hashLength, isHexadecimal) &&
           std::all_of(name.begin() + hashLength + 1, name.end(), isDigit);
}

bool holdsHashedLink(const char* directory) {
    std::error_code failure;
    auto entry = std::filesystem::directory_iterator(directory, failure);
    for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure))
        if (isHashedLink(entry->path().filename().string())) return true;
    return false;
}

/// Opening anything else, such as a pipe, could block. A missing file fails the request.
bool isFileOrMissing(const std::filesystem::path& path) {
    std::error_code failure;
    const auto found = std::filesystem::status(path, failure).type();
    return found == std::filesystem::file_type::regular ||
           found == std::filesystem::file_type::not_found;
}

bool holdsFilesAlone(const std::string& directory) {
    std::error_code failure;
    auto entry = std::filesystem::directory_iterator(directory, failure);
    for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure))
        if (isHashedLink(entry->path().filename().string()) && !isFileOrMissing(entry->path()))
            return false;
    return true;
}

/// OpenSSL accepts a list.
bool allHoldFilesAlone(const std::string& directories) {
    std::istringstream list(directories);
    for (std::string one; std::getline(list, one, ':');)
        if (!holdsFilesAlone(one)) return false;
    return true;
}

TrustStore find() {
    constexpr const char* nothing = "/dev/null/unreadable";
    const Environment& environment = Environment::current();
    TrustStore store{.file = environment.sslCertFile, .directory = environment.sslCertDir};
    if (store.file && !isFileOrMissing(*store.file)) store.file = nothing;
    if (store.directory && !allHoldFilesAlone(*store.directory)) store.directory = nothing;
    const char* compiledIn = curl_version_info(CURLVERSION_NOW)->capath;
    if (!store.file && !store.directory && compiledIn != nullptr && holdsHashedLink(compiledIn)) {
        store.directory = compiledIn;
        store.directoryAlone = true;
    }
    return store;
}

}  // namespace

const TrustStore& TrustStore::current() {
    static const TrustStore& store = *new TrustStore(find());
    return store;
}

}  // namespace kivo::platform
