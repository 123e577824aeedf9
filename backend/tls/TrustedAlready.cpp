#include "backend/tls/TrustedAlready.h"

#include <openssl/x509.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

namespace {

/// Where distributions keep all roots in one file.
std::string systemFile() {
    const std::array candidates{X509_get_default_cert_file(), "/etc/ssl/certs/ca-certificates.crt",
                                "/etc/pki/tls/certs/ca-bundle.crt", "/etc/ssl/cert.pem"};
    std::error_code unreadable;
    for (const auto* file : candidates)
        if (std::filesystem::is_regular_file(file, unreadable)) return file;
    return {};
}

}  // namespace

std::string trustedAlready() {
    for (const std::string variable : {"SSL_CERT_FILE", "CURL_CA_BUNDLE"}) {
        const char* name = std::getenv(variable.c_str());
        if (!name || !*name) continue;
        try {
            return contentOf(name) + "\n";
        } catch (const std::system_error& error) {
            throw std::runtime_error(variable + " cannot be read: " + error.what() +
                                     "; fix it or unset it");
        }
    }
    const auto file = systemFile();
    return file.empty() ? "" : contentOf(file) + "\n";
}

}  // namespace kivo::backend
