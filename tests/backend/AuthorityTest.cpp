#include "backend/Authority.h"

#include "backend/AuthorityStore.h"
#include "backend/Certificate.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <chrono>
#include <fstream>
#include <future>
#include <set>

namespace kivo::tests {
namespace {

using backend::Authority;
using backend::openAuthorityStore;
namespace fs = std::filesystem;

/// What OpenSSL says to a client that trusts the authority and wants to reach the host: X509_V_OK
/// or the objection.
int verdict(const std::string& trusted, const std::string& shown, const std::string& host) {
    const auto root = backend::certificateFrom(trusted);
    const auto leaf = backend::certificateFrom(shown);
    const std::unique_ptr<X509_STORE, backend::Releasing<X509_STORE_free>> store(X509_STORE_new());
    X509_STORE_add_cert(store.get(), root.get());
    const std::unique_ptr<X509_STORE_CTX, backend::Releasing<X509_STORE_CTX_free>> context(
        X509_STORE_CTX_new());
    X509_STORE_CTX_init(context.get(), store.get(), leaf.get(), nullptr);
    auto* parameters = X509_STORE_CTX_get0_param(context.get());
    X509_VERIFY_PARAM_set_purpose(parameters, X509_PURPOSE_SSL_SERVER);
    if (X509_VERIFY_PARAM_set1_ip_asc(parameters, host.c_str()) != 1) {
        X509_VERIFY_PARAM_set1_host(parameters, host.c_str(), 0);
    }
    X509_verify_cert(context.get());
    return X509_STORE_CTX_get_error(context.get());
}

int verdictOn(const Authority& authority, const std::string& host) {
    return verdict(authority.certificate(), authority.issue({host}).certificate, host);
}

TEST(AuthorityTest, IsBelievedForLoopbackAndItsExtraNamesOnly) {
    const auto plain = Authority::make();
    const auto extended = Authority::make({"api.production.example"});
    for (const std::string host : {"localhost", "127.0.0.1", "127.9.9.9", "::1"}) {
        EXPECT_EQ(verdictOn(plain, host), X509_V_OK) << host;
        EXPECT_EQ(verdictOn(extended, host), X509_V_OK) << host;
    }
    for (const std::string host : {"api.production.example", "bank.example", "128.0.0.1", "::2"}) {
        EXPECT_EQ(verdictOn(plain, host), X509_V_ERR_PERMITTED_VIOLATION) << host;
    }
    EXPECT_EQ(verdictOn(extended, "api.production.example"), X509_V_OK);
    EXPECT_EQ(verdictOn(extended, "bank.example"), X509_V_ERR_PERMITTED_VIOLATION);
}

TEST(AuthorityTest, RefusesTextThatIsNoDnsName) {
    EXPECT_THROW(Authority::make({"a.example,permitted;DNS:bank.example"}), std::invalid_argument);
    EXPECT_THROW(Authority::make().issue({""}), std::invalid_argument);
}

TEST(AuthorityTest, TakesUpOnlyWhatIsWhole) {
    const auto one = Authority::make();
    const auto other = Authority::make();
    const auto reread = Authority::read(one.pem());
    ASSERT_TRUE(reread);
    EXPECT_EQ(verdict(one.certificate(), reread->issue({"localhost"}).certificate, "localhost"),
              X509_V_OK);
    const auto key = other.pem().substr(other.certificate().size());
    EXPECT_FALSE(Authority::read(one.certificate() + key));
    EXPECT_FALSE(Authority::read(one.certificate()));
    EXPECT_FALSE(Authority::read("nonsense"));
}

TEST(AuthorityTest, IsNotTakenUpWhenItIsAboutToExpire) {
    const auto pemValidFor = [](std::chrono::days days) {
        const auto key = backend::makeKey();
        const auto certificate =
            backend::CertificateBuilder("old", *key, nullptr).validFor(days).sign(*key);
        return backend::pemOf(*certificate) + backend::pemOf(*key);
    };
    EXPECT_TRUE(Authority::read(pemValidFor(std::chrono::days(60))));
    EXPECT_FALSE(Authority::read(pemValidFor(std::chrono::days(20))));
    EXPECT_FALSE(Authority::read(pemValidFor(std::chrono::days(-1))));
}

TEST(AuthorityStoreTest, ManyAtOnceGetTheSameOne) {
    const TemporaryDirectory folder;
    std::vector<std::future<std::string>> openings;
    for (int count = 0; count < 8; ++count) {
        openings.push_back(std::async(std::launch::async, [&] {
            return openAuthorityStore(folder.path() / "new" / "store").authority.pem();
        }));
    }
    std::set<std::string> distinct;
    for (auto& opening : openings) distinct.insert(opening.get());
    EXPECT_EQ(distinct.size(), 1);
}

TEST(AuthorityStoreTest, IsForItsOwnerAlone) {
    const TemporaryDirectory folder;
    const auto store = openAuthorityStore(folder.path() / "store");
    EXPECT_EQ(fs::status(folder.path() / "store").permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(folder.path() / "store" / "authority.pem").permissions(), fs::perms(0600));
}

TEST(AuthorityStoreTest, ReplacesADamagedAuthorityAndItsTrustFile) {
    const TemporaryDirectory folder;
    const auto first = openAuthorityStore(folder.path());
    std::ofstream(folder.path() / "authority.pem") << first.authority.pem().substr(0, 300);
    const auto second = openAuthorityStore(folder.path());
    EXPECT_NE(second.authority.certificate(), first.authority.certificate());
    std::ifstream trusted(second.trustFile);
    const std::string text(std::istreambuf_iterator<char>(trusted), {});
    EXPECT_EQ(text, second.authority.certificate());
}

}  // namespace
}  // namespace kivo::tests
