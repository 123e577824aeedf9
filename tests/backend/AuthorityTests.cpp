#include <gmock/gmock.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <fstream>
#include <future>
#include <set>

#include "backend/tls/AuthorityStore.h"
#include "backend/tls/Certificate.h"
#include "tests/support/TemporaryDirectory.h"

namespace kivo::tests {

namespace {

using namespace std::string_literals;
using backend::Authority;
using backend::openAuthorityStore;
using backend::Releasing;
namespace fs = std::filesystem;

/// What a client says that trusts one authority and is shown what the other issues to the host.
int verdict(const Authority& trusted, const Authority& issuer, const std::string& host) {
    const auto root = backend::certificateFrom(trusted.certificate());
    const auto leaf = backend::certificateFrom(issuer.issue({host}).certificate);
    const std::unique_ptr<X509_STORE, Releasing<X509_STORE_free>> store(X509_STORE_new());
    const std::unique_ptr<X509_STORE_CTX, Releasing<X509_STORE_CTX_free>> client(
        X509_STORE_CTX_new());
    X509_STORE_add_cert(store.get(), root.get());
    X509_STORE_CTX_init(client.get(), store.get(), leaf.get(), nullptr);
    X509_STORE_CTX_set_purpose(client.get(), X509_PURPOSE_SSL_SERVER);
    auto* wanted = X509_STORE_CTX_get0_param(client.get());
    if (X509_VERIFY_PARAM_set1_ip_asc(wanted, host.c_str()) != 1)
        X509_VERIFY_PARAM_set1_host(wanted, host.c_str(), 0);
    X509_verify_cert(client.get());
    return X509_STORE_CTX_get_error(client.get());
}

TEST(AuthorityTest, IsBelievedForLoopbackAndItsExtraNamesOnly) {
    const auto plain = Authority::make();
    const auto extended = Authority::make({"api.example"});
    for (const auto* host : {"localhost", "127.0.0.1", "127.9.9.9", "::1"}) {
        EXPECT_EQ(verdict(plain, plain, host), X509_V_OK) << host;
        EXPECT_EQ(verdict(extended, extended, host), X509_V_OK) << host;
    }
    for (const auto* host : {"api.example", "bank.example", "128.0.0.1", "::2"})
        EXPECT_EQ(verdict(plain, plain, host), X509_V_ERR_PERMITTED_VIOLATION) << host;
    EXPECT_EQ(verdict(extended, extended, "api.example"), X509_V_OK);
    EXPECT_EQ(verdict(extended, extended, "bank.example"), X509_V_ERR_PERMITTED_VIOLATION);
    EXPECT_THROW(Authority::make({"a.example,permitted;DNS:bank.example"}), std::invalid_argument);
    EXPECT_THROW(plain.issue({""}), std::invalid_argument);
}

/// An authority that is valid from one day to another, counted from today.
std::string pemValid(int from, int until) {
    const auto made = Authority::make().pem();
    const auto key = backend::keyFrom(made);
    const auto certificate = backend::certificateFrom(made);
    X509_time_adj_ex(X509_getm_notBefore(certificate.get()), from, 0, nullptr);
    X509_time_adj_ex(X509_getm_notAfter(certificate.get()), until, 0, nullptr);
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    return backend::pemOf(*certificate) + backend::pemOf(*key);
}

TEST(AuthorityTest, IsRenewedWithItsKeyWhenItEndsOrTheClockJumped) {
    for (const auto& [from, until] : {std::pair(-9, 60), std::pair(-9, -1), std::pair(500, 1230)}) {
        const auto old = pemValid(from, until);
        const auto renewed = Authority::read(old).value();
        EXPECT_EQ(verdict(renewed, renewed, "localhost"), X509_V_OK) << from;
        EXPECT_EQ(Authority::read(renewed.pem()).value().pem(), renewed.pem());
        EXPECT_TRUE(renewed.pem().ends_with(backend::pemOf(*backend::keyFrom(old))));
        const auto certificate = backend::certificateFrom(renewed.pem());
        const auto oldOne = backend::certificateFrom(old);
        EXPECT_LE(ASN1_TIME_compare(X509_get0_notBefore(certificate.get()),
                                    X509_get0_notBefore(oldOne.get())),
                  0);
        EXPECT_GE(ASN1_TIME_compare(X509_get0_notAfter(certificate.get()),
                                    X509_get0_notAfter(oldOne.get())),
                  0);
    }
    const auto lasting = pemValid(-9, 400);
    EXPECT_EQ(Authority::read(lasting).value().pem(), lasting);
}

TEST(AuthorityTest, IsTakenUpOnlyWhenItIsWhole) {
    const auto one = Authority::make();
    EXPECT_EQ(verdict(one, Authority::read(one.pem()).value(), "localhost"), X509_V_OK);
    const auto foreignKey = backend::pemOf(*backend::makeKey());
    for (const auto& pem : {one.certificate() + foreignKey, one.certificate(), "nonsense"s})
        EXPECT_FALSE(Authority::read(pem)) << pem;
}

TEST(AuthorityStoreTest, GivesManyAtOnceTheSameOneUntilItIsDamaged) {
    const TemporaryDirectory folder;
    const auto store = folder.path() / "new" / "store";
    const auto open = [&] { return openAuthorityStore(store).authority.pem(); };
    std::vector<std::future<std::string>> openings(8);
    for (auto& opening : openings) opening = std::async(std::launch::async, open);
    std::set<std::string> distinct;
    for (auto& opening : openings) distinct.insert(opening.get());
    EXPECT_EQ(distinct.size(), 1);
    EXPECT_EQ(fs::status(store).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(store / "authority.pem").permissions(), fs::perms(0600));

    std::ofstream(store / "authority.pem") << distinct.begin()->substr(0, 300);
    const auto [authority, trustFile] = openAuthorityStore(store);
    EXPECT_FALSE(distinct.contains(authority.pem()));
    std::ifstream trusted(trustFile);
    EXPECT_EQ(std::string(std::istreambuf_iterator(trusted), {}), authority.certificate());

    if (chown(trustFile.c_str(), 65534, 0) != 0) return;  // Only root gives files away.
    EXPECT_THAT([&] { openAuthorityStore(store); },
                testing::ThrowsMessage<std::runtime_error>(
                    testing::HasSubstr("ca.pem belongs to another user (65534); remove it")));
}

}  // namespace

}  // namespace kivo::tests
