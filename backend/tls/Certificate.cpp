#include "backend/tls/Certificate.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <limits>
#include <stdexcept>

namespace kivo::backend {

namespace {

using BioPointer = std::unique_ptr<BIO, Releasing<BIO_free>>;
using ExtensionPointer = std::unique_ptr<X509_EXTENSION, Releasing<X509_EXTENSION_free>>;

constexpr long version3 = 2;
constexpr std::chrono::hours clockSkew(1);

void require(bool done, const std::string& what) {
    if (done) return;
    ERR_clear_error();
    throw std::runtime_error("OpenSSL could not " + what);
}

std::string textIn(BIO& memory) {
    char* start = nullptr;
    const auto size = BIO_get_mem_data(&memory, &start);
    return {start, static_cast<std::size_t>(size)};
}

BioPointer reading(std::string_view text) {
    if (text.size() > std::numeric_limits<int>::max())
        throw std::runtime_error("oversized PEM text");
    return BioPointer(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

int noPassphrase(char*, int, int, void*) { return -1; }

void setSerialNumber(X509& certificate) {
    std::array<unsigned char, 16> bytes{};
    require(RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1, "make random bytes");
    bytes.front() = static_cast<unsigned char>((bytes.front() & 0x7F) | 0x40);
    const std::unique_ptr<BIGNUM, Releasing<BN_free>> number(
        BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
    const bool done =
        number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(&certificate));
    require(done, "set a serial number");
}

void setCommonName(X509_NAME& subject, const std::string& name) {
    const auto* text = reinterpret_cast<const unsigned char*>(name.c_str());
    const int done = X509_NAME_add_entry_by_txt(&subject, "CN", MBSTRING_UTF8, text, -1, -1, 0);
    require(done == 1, "name a certificate");
}

void setStart(X509& certificate) {
    ASN1_TIME_set(X509_getm_notBefore(&certificate), timeIn(-clockSkew));
}

void setEnd(X509& certificate, std::chrono::seconds duration) {
    ASN1_TIME_set(X509_getm_notAfter(&certificate), timeIn(duration));
}

}  // namespace

std::time_t timeIn(std::chrono::seconds duration) {
    using Clock = std::chrono::system_clock;
    return Clock::to_time_t(Clock::now() + duration);
}

KeyPointer makeKey() {
    KeyPointer key(EVP_EC_gen("P-256"));
    require(key != nullptr, "make a key");
    return key;
}

std::string pemOf(const X509& certificate) {
    const BioPointer memory(BIO_new(BIO_s_mem()));
    require(memory && PEM_write_bio_X509(memory.get(), &certificate) == 1, "write a certificate");
    return textIn(*memory);
}

std::string pemOf(const EVP_PKEY& key) {
    const BioPointer memory(BIO_new(BIO_s_mem()));
    const bool done = memory && PEM_write_bio_PKCS8PrivateKey(memory.get(), &key, nullptr, nullptr,
                                                              0, nullptr, nullptr) == 1;
    require(done, "write a key");
    return textIn(*memory);
}

CertificatePointer certificateFrom(std::string_view pem) {
    const auto memory = reading(pem);
    CertificatePointer certificate(PEM_read_bio_X509(memory.get(), nullptr, noPassphrase, nullptr));
    ERR_clear_error();
    return certificate;
}

KeyPointer keyFrom(std::string_view pem) {
    const auto memory = reading(pem);
    KeyPointer key(PEM_read_bio_PrivateKey(memory.get(), nullptr, noPassphrase, nullptr));
    ERR_clear_error();
    return key;
}

CertificatePointer renewed(const X509& certificate, EVP_PKEY& key, std::chrono::seconds duration) {
    CertificatePointer copy(X509_dup(&certificate));
    require(copy != nullptr, "copy a certificate");
    setSerialNumber(*copy);
    auto start = timeIn(-clockSkew);
    if (X509_cmp_time(X509_get0_notBefore(copy.get()), &start) > 0) setStart(*copy);
    auto end = timeIn(duration);
    if (X509_cmp_time(X509_get0_notAfter(copy.get()), &end) < 0) setEnd(*copy, duration);
    require(X509_sign(copy.get(), &key, EVP_sha256()) > 0, "sign a certificate");
    return copy;
}

CertificateBuilder::CertificateBuilder(const std::string& commonName, EVP_PKEY& subjectKey,
                                       X509* issuer)
    : certificate_(X509_new()), issuer_(issuer ? issuer : certificate_.get()) {
    require(certificate_ && X509_set_version(certificate_.get(), version3) == 1,
            "start a certificate");
    setSerialNumber(*certificate_);
    setCommonName(*X509_get_subject_name(certificate_.get()), commonName);
    const bool done =
        X509_set_issuer_name(certificate_.get(), X509_get_subject_name(issuer_)) == 1 &&
        X509_set_pubkey(certificate_.get(), &subjectKey) == 1;
    require(done, "fill in a certificate");
}

CertificateBuilder& CertificateBuilder::validFor(std::chrono::seconds duration) {
    setStart(*certificate_);
    setEnd(*certificate_, duration);
    return *this;
}

CertificateBuilder& CertificateBuilder::extension(int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer_, certificate_.get(), nullptr, nullptr, 0);
    X509V3_set_ctx_nodb(&context);
    const ExtensionPointer made(X509V3_EXT_nconf_nid(nullptr, &context, nid, value.c_str()));
    require(made && X509_add_ext(certificate_.get(), made.get(), -1) == 1, "add " + value);
    return *this;
}

CertificatePointer CertificateBuilder::sign(EVP_PKEY& issuerKey) {
    require(X509_sign(certificate_.get(), &issuerKey, EVP_sha256()) > 0, "sign a certificate");
    return std::move(certificate_);
}

}  // namespace kivo::backend
