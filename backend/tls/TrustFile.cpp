#include "backend/tls/TrustFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

namespace {

std::string makeFile(const std::string& content) {
    std::string path = std::filesystem::temp_directory_path() / "kivo-dev-trust-XXXXXX";
    const FileDescriptor file(mkostemp(path.data(), O_CLOEXEC), path);
    file.write(content);
    return path;
}

}  // namespace

TrustFile::TrustFile(const std::string& certificates) try : path_(makeFile(certificates)) {
} catch (const std::system_error& error) {
    throw std::runtime_error("cannot write a temporary file: " + std::string(error.what()) +
                             "; set TMPDIR to a folder that you own");
}

TrustFile::~TrustFile() { unlink(path_.c_str()); }

std::string trustedAlready() {
    const char* name = std::getenv("SSL_CERT_FILE");
    if (!name || !*name) return {};
    try {
        return contentOf(name) + "\n";
    } catch (const std::system_error& error) {
        throw std::runtime_error("SSL_CERT_FILE cannot be read: " + std::string(error.what()) +
                                 "; fix it or unset it");
    }
}

}  // namespace kivo::backend
