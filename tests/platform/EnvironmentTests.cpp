#include "kivo/platform/Environment.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

#include "kivo/platform/ApplicationFolder.h"
#include "kivo/platform/Bundle.h"

namespace kivo::platform {
namespace {

using Variables = std::map<std::string, std::string>;

Environment with(const Variables& variables) {
    for (const char* name :
         {"HOME", "XDG_STATE_HOME", "XDG_DATA_HOME", "http_proxy", "HTTP_PROXY", "https_proxy",
          "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY", "SSL_CERT_FILE"})
        unsetenv(name);
    for (const auto& [name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
    return Environment::read();
}

TEST(Environment, FindsTheUsersDirectories) {
    const auto plain = with({{"HOME", "/home/ana"}});
    EXPECT_EQ(plain.stateDirectory, "/home/ana/.local/state");
    EXPECT_EQ(plain.dataDirectory, "/home/ana/.local/share");

    const auto moved = with({{"XDG_STATE_HOME", "/s"}, {"XDG_DATA_HOME", "/d"}});
    EXPECT_EQ(moved.home, std::nullopt);
    EXPECT_EQ(moved.stateDirectory, "/s");
    EXPECT_EQ(moved.dataDirectory, "/d");

    const auto relative = with({{"HOME", "/h"}, {"XDG_STATE_HOME", "s"}, {"XDG_DATA_HOME", ""}});
    EXPECT_EQ(relative.stateDirectory, "/h/.local/state");
    EXPECT_EQ(relative.dataDirectory, "/h/.local/share");
    EXPECT_EQ(with({{"HOME", "h"}}).dataDirectory, std::nullopt);
}

TEST(Environment, ReadsProxiesAsLibcurlWould) {
    const auto lower =
        with({{"http_proxy", "h"}, {"https_proxy", "s"}, {"HTTPS_PROXY", "S"}, {"ALL_PROXY", "A"}});
    EXPECT_EQ(lower.proxyFor("http"), "h");
    EXPECT_EQ(lower.proxyFor("https"), "s");
    EXPECT_EQ(lower.proxyFor("ftp"), "A");

    const auto upper = with({{"HTTP_PROXY", "from a header"},
                             {"https_proxy", ""},
                             {"HTTPS_PROXY", "S"},
                             {"NO_PROXY", "n"}});
    EXPECT_EQ(upper.proxyFor("http"), "");
    EXPECT_EQ(upper.proxyFor("https"), "S");
    EXPECT_EQ(upper.noProxy, "n");
}

TEST(Environment, TellsAnEmptyTrustStoreFromNone) {
    EXPECT_EQ(with({{"SSL_CERT_FILE", ""}}).sslCertFile, std::nullopt);
    EXPECT_EQ(with({{"SSL_CERT_FILE", "/ca"}}).sslCertFile, "/ca");
}

TEST(ApplicationFolder, IsTheIdentifierOnlyWhereThatIsSafe) {
    EXPECT_EQ(folderName("com.example.App-1_2"), "com.example.App-1_2");
    for (const std::string unsafe : {"", ".", "..", ".hidden", "a/b", "a b", "ü", "a\n", "id\\"}) {
        EXPECT_TRUE(folderName(unsafe).starts_with("id-")) << unsafe;
        EXPECT_EQ(folderName(unsafe).size(), 35U) << unsafe;
    }
    EXPECT_EQ(folderName(std::string(200, 'a')), std::string(200, 'a'));
    EXPECT_EQ(folderName(std::string(201, 'a')).size(), 35U);
    EXPECT_NE(folderName("a/b"), folderName("a/c"));
    EXPECT_EQ(folderName("a/b"), "id-e620c3190468cf614c0f7f1b42f0fe6c")
        << "stored state would be lost";
}

TEST(Bundle, KeepsItsFirstIdentifier) {
    EXPECT_EQ(Bundle::mainIdentifier(), std::nullopt);
    Bundle::setMainIdentifier("com.example.first");
    Bundle::setMainIdentifier("com.example.second");
    EXPECT_EQ(Bundle::mainIdentifier(), "com.example.first");
}

}  // namespace
}  // namespace kivo::platform
