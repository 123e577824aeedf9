#pragma once

#include <string>

namespace kivo::backend {

/// A temporary file with the certificates that a program is to trust, readable by its owner only.
/// The destructor removes it.
class TrustFile {
public:
    /// Throws std::runtime_error, with a message for the user, if it cannot be written.
    explicit TrustFile(const std::string& certificates);
    ~TrustFile();

    TrustFile(const TrustFile&) = delete;
    TrustFile& operator=(const TrustFile&) = delete;

    const std::string& path() const { return path_; }

private:
    const std::string path_;
};

/// The certificates in the file that SSL_CERT_FILE names; empty if it is not set. Throws
/// std::runtime_error, with a message for the user, if the file cannot be read.
std::string trustedAlready();

}  // namespace kivo::backend
