#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kivo::backend {

/// What a TLS server shows and proves: a certificate and its key, both as PEM text.
struct Identity {
    std::string certificate;
    std::string privateKey;
};

/// A certificate authority of our own. Its certificate is limited, by critical name constraints, to
/// localhost, the loopback addresses and the extra DNS names given when it was made: whoever trusts
/// it trusts it for nothing else. Failures of the cryptographic library are thrown as
/// std::runtime_error.
class Authority {
public:
    /// Makes one in memory. A name that is no plain DNS name throws std::invalid_argument.
    static Authority make(const std::vector<std::string>& extraNames = {});

    /// Takes up what pem() gave; nothing when the text is damaged or the certificate is about to
    /// expire.
    static std::optional<Authority> read(std::string_view pem);

    Authority(Authority&&) noexcept;
    ~Authority();

    /// A fresh identity for these DNS names and addresses, whether or not clients will accept it
    /// for them.
    Identity issue(const std::vector<std::string>& hosts) const;

    /// The certificate alone: what clients are told to trust.
    std::string certificate() const;

    /// Certificate and private key.
    std::string pem() const;

private:
    struct Keeping;
    explicit Authority(std::unique_ptr<Keeping> keeping);
    std::unique_ptr<Keeping> keeping_;
};

/// The hosts that every authority may speak for: localhost, 127.0.0.1 and ::1.
std::vector<std::string> loopbackHosts();

}  // namespace kivo::backend
