#pragma once

#include <string>

namespace kivo::backend {

/// A temporary file, for its owner alone, with what a program is to trust. Removed with this
/// object.
class TrustFile {
public:
    /// Throws std::runtime_error, with a text for the person at the keyboard, when it cannot be
    /// written.
    explicit TrustFile(const std::string& certificates);
    ~TrustFile();

    TrustFile(const TrustFile&) = delete;
    TrustFile& operator=(const TrustFile&) = delete;

    const std::string& path() const { return path_; }

private:
    const std::string path_;
};

/// The certificates in the file that SSL_CERT_FILE names; empty when it names none. Throws
/// std::runtime_error, with a text for the person at the keyboard, when it cannot be read.
std::string trustedAlready();

}  // namespace kivo::backend
