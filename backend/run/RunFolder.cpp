#include "backend/run/RunFolder.h"

#include <fcntl.h>

#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void reject(const std::system_error& error) {
    throw std::runtime_error("cannot write a temporary file: " + std::string(error.what()) +
                             "; set TMPDIR to a folder that you own");
}

fs::path makeFolder() try {
    std::string path = fs::temp_directory_path() / "kivo-dev-run-XXXXXX";
    if (!mkdtemp(path.data())) throwLastError(path);
    return path;
} catch (const std::system_error& error) {
    reject(error);
}

}  // namespace

RunFolder::RunFolder() : path_(makeFolder()) {}

RunFolder::~RunFolder() { removeFolder(path_); }

std::string RunFolder::writeTrustFile(const std::string& certificates) const try {
    const auto path = path_ / "trust.pem";
    const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600),
                              path);
    file.write(certificates);
    return path;
} catch (const std::system_error& error) {
    reject(error);
}

void removeFolder(const fs::path& folder) {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

}  // namespace kivo::backend
