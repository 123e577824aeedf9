#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kivo::backend {

/// A TLS server's certificate and private key, both as PEM.
struct Identity {
    std::string certificate;
    std::string privateKey;
};

/// A certificate authority of our own. Critical name constraints limit its certificate to
/// localhost, the loopback addresses, and the extra DNS names given when it was created: a client
/// that trusts it trusts it for nothing else. OpenSSL failures are thrown as std::runtime_error.
class Authority {
public:
    /// Creates one in memory. Throws std::invalid_argument if a name is not a DNS name.
    static Authority make(const std::vector<std::string>& extraNames = {});

    /// Reads the output of pem(); std::nullopt if it is damaged. A certificate that expires within
    /// a year, or that the clock says is not valid, is renewed with the same key.
    static std::optional<Authority> read(std::string_view pem);

    Authority(Authority&&) noexcept;
    ~Authority();

    /// Issues an identity for these DNS names and addresses, whether or not the constraints allow
    /// them.
    Identity issue(const std::vector<std::string>& hosts) const;

    /// The certificate as PEM: what clients must trust.
    std::string certificate() const;

    /// The certificate and the private key as PEM.
    std::string pem() const;

private:
    struct Credentials;
    explicit Authority(std::unique_ptr<Credentials> credentials);
    std::unique_ptr<Credentials> credentials_;
};

/// The hosts that every authority may certify: localhost, 127.0.0.1 and ::1.
std::vector<std::string> loopbackHosts();

}  // namespace kivo::backend
