#include "backend/tls/Authority.h"

#include <openssl/x509v3.h>

#include <chrono>
#include <stdexcept>

#include "backend/base/HostAndPort.h"
#include "backend/tls/Certificate.h"

namespace kivo::backend {

namespace {

using Days = std::chrono::duration<long, std::ratio<86400>>;
constexpr Days authorityLifetime{730};
constexpr Days identityLifetime{365};
constexpr Days renewalMargin{366};  // An identity never outlives the authority that issued it.

constexpr const char* loopbackOnly =
    "critical,permitted;DNS:localhost,permitted;IP:127.0.0.0/255.0.0.0,"
    "permitted;IP:0:0:0:0:0:0:0:1/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff";

void requireDnsName(const std::string& name) {
    if (!isDnsName(name)) throw std::invalid_argument("\"" + name + "\" is not a DNS name");
}

std::string constraints(const std::vector<std::string>& extraNames) {
    std::string text = loopbackOnly;
    for (const auto& name : extraNames) {
        requireDnsName(name);
        text += ",permitted;DNS:" + name;
    }
    return text;
}

std::string alternativeName(const std::string& host) {
    if (isAddress(host)) return "IP:" + host;
    requireDnsName(host);
    return "DNS:" + host;
}

std::string alternativeNames(const std::vector<std::string>& hosts) {
    std::string text;
    for (const auto& host : hosts) text += (text.empty() ? "" : ",") + alternativeName(host);
    return text;
}

/// Also false where the clock is behind the certificate.
bool isValidForLong(const X509& certificate) {
    auto soon = timeIn(renewalMargin);
    return X509_cmp_current_time(X509_get0_notBefore(&certificate)) < 0 &&
           X509_cmp_time(X509_get0_notAfter(&certificate), &soon) > 0;
}

}  // namespace

struct Authority::Credentials {
    KeyPointer key;
    CertificatePointer certificate;
};

Authority::Authority(std::unique_ptr<Credentials> credentials)
    : credentials_(std::move(credentials)) {}

Authority::Authority(Authority&&) noexcept = default;
Authority::~Authority() = default;

Authority Authority::make(const std::vector<std::string>& extraNames) {
    auto key = makeKey();
    auto certificate = CertificateBuilder("Kivo development authority", *key, nullptr)
                           .validFor(authorityLifetime)
                           .extension(NID_basic_constraints, "critical,CA:TRUE,pathlen:0")
                           .extension(NID_key_usage, "critical,keyCertSign,cRLSign")
                           .extension(NID_name_constraints, constraints(extraNames))
                           .extension(NID_subject_key_identifier, "hash")
                           .sign(*key);
    return Authority(std::make_unique<Credentials>(std::move(key), std::move(certificate)));
}

std::optional<Authority> Authority::read(std::string_view pem) {
    auto credentials = std::make_unique<Credentials>(keyFrom(pem), certificateFrom(pem));
    if (!credentials->key || !credentials->certificate) return std::nullopt;
    if (X509_check_private_key(credentials->certificate.get(), credentials->key.get()) != 1)
        return std::nullopt;
    auto& certificate = credentials->certificate;
    if (!isValidForLong(*certificate))
        certificate = renewed(*certificate, *credentials->key, authorityLifetime);
    return Authority(std::move(credentials));
}

Identity Authority::issue(const std::vector<std::string>& hosts) const {
    const auto key = makeKey();
    const auto certificate =
        CertificateBuilder("Kivo development server", *key, credentials_->certificate.get())
            .validFor(identityLifetime)
            .extension(NID_basic_constraints, "critical,CA:FALSE")
            .extension(NID_key_usage, "critical,digitalSignature")
            .extension(NID_ext_key_usage, "serverAuth")
            .extension(NID_subject_alt_name, alternativeNames(hosts))
            .extension(NID_subject_key_identifier, "hash")
            .extension(NID_authority_key_identifier, "keyid")
            .sign(*credentials_->key);
    return {.certificate = pemOf(*certificate), .privateKey = pemOf(*key)};
}

std::string Authority::certificate() const { return pemOf(*credentials_->certificate); }

std::string Authority::pem() const { return certificate() + pemOf(*credentials_->key); }

std::vector<std::string> loopbackHosts() { return {"localhost", "127.0.0.1", "::1"}; }

}  // namespace kivo::backend
