#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

namespace kivo::backend {

template <auto release>
struct Releasing {
    template <typename Thing>
    void operator()(Thing* thing) const {
        release(thing);
    }
};

using KeyPointer = std::unique_ptr<EVP_PKEY, Releasing<EVP_PKEY_free>>;
using CertificatePointer = std::unique_ptr<X509, Releasing<X509_free>>;

/// What the clock will show then, or has shown where `duration` is negative, as OpenSSL takes it.
std::time_t timeIn(std::chrono::seconds duration);

/// A new P-256 key.
KeyPointer makeKey();

std::string pemOf(const X509& certificate);
std::string pemOf(const EVP_PKEY& key);

/// Empty if the text contains none.
CertificatePointer certificateFrom(std::string_view pem);
KeyPointer keyFrom(std::string_view pem);

/// The certificate with a validity that also covers an hour ago until `duration` from now, signed
/// with its own key. Those who trust the old one trust what that key signs for as long as before.
CertificatePointer renewed(const X509& certificate, EVP_PKEY& key, std::chrono::seconds duration);

/// Builds one X.509 certificate, then signs it.
class CertificateBuilder {
public:
    /// Without an issuer the certificate is self-signed.
    CertificateBuilder(const std::string& commonName, EVP_PKEY& subjectKey, X509* issuer);

    CertificateBuilder& validFor(std::chrono::seconds duration);

    /// `value` has the syntax of OpenSSL's configuration files.
    CertificateBuilder& extension(int nid, const std::string& value);

    CertificatePointer sign(EVP_PKEY& issuerKey);

private:
    CertificatePointer certificate_;
    X509* issuer_;
};

}  // namespace kivo::backend
