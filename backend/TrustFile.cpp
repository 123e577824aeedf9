#include "backend/TrustFile.h"

#include "backend/FileDescriptor.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace kivo::backend {

TrustFile::TrustFile(const std::string& certificates)
    : path_(std::filesystem::temp_directory_path() / "kivo-dev-trust-XXXXXX") {
    const FileDescriptor file(::mkostemp(path_.data(), O_CLOEXEC), path_);
    file.write(certificates);
}

TrustFile::~TrustFile() { ::unlink(path_.c_str()); }

std::string trustedAlready() {
    const char* name = std::getenv("SSL_CERT_FILE");
    if (!name || !*name) return {};
    std::ifstream file(name, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    if (file.is_open() && !file.bad()) return text.ends_with('\n') ? text : text + "\n";
    throw std::runtime_error("SSL_CERT_FILE names " + std::string(name) +
                             ", which cannot be read; unset it or correct it");
}

}  // namespace kivo::backend
