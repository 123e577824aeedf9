#include <gtest/gtest.h>

#include <map>

#include "kivo/platform/system/ApplicationFolder.h"
#include "kivo/platform/system/Environment.h"

namespace kivo::platform {

namespace {

Environment with(const std::map<std::string, std::string>& variables) {
    clearenv();
    for (const auto& [name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
    return Environment::read();
}

TEST(Environment, FindsDirectoriesProxiesAndTrustStoreOnce) {
    const auto moved = with({{"XDG_STATE_HOME", "/s"}, {"XDG_DATA_HOME", "/d"}});
    EXPECT_EQ(moved.stateDirectory, "/s");
    EXPECT_EQ(moved.dataDirectory, "/d");
    const auto relative = with({{"HOME", "/h"}, {"XDG_STATE_HOME", "s"}, {"XDG_DATA_HOME", ""}});
    EXPECT_EQ(relative.stateDirectory, "/h/.local/state");
    EXPECT_EQ(relative.dataDirectory, "/h/.local/share");
    EXPECT_EQ(with({{"HOME", "h"}}).dataDirectory, std::nullopt);

    const auto lower = with({{"https_proxy", "s"}, {"HTTPS_PROXY", "S"}, {"ALL_PROXY", "A"}});
    EXPECT_EQ(lower.proxyFor("https") + lower.proxyFor("http"), "sA");
    const auto upper = with({{"HTTP_PROXY", "h"}, {"https_proxy", ""}, {"HTTPS_PROXY", "S"}});
    EXPECT_EQ(upper.proxyFor("https") + upper.proxyFor("http"), "S") << "Proxy: is a header, too";
    EXPECT_EQ(with({{"SSL_CERT_FILE", ""}}).sslCertFile, std::nullopt);

    const auto home = Environment::current().home;
    EXPECT_NE(with({{"HOME", "/changed/by/the/host"}}).home, home);
    EXPECT_EQ(Environment::current().home, home);
}

TEST(ApplicationFolder, IsTheIdentifierOnlyWhereThatIsSafe) {
    const auto tooLong = "com.example.App-1_" + std::string(183, '2');
    EXPECT_EQ(folderName(tooLong.substr(1)), tooLong.substr(1));
    for (const std::string unsafe :
         {"", ".", "..", ".hidden", "a b", "ü", "a\n", "id\\", tooLong.c_str()})
        EXPECT_TRUE(folderName(unsafe).starts_with("id-")) << unsafe;
    EXPECT_EQ(folderName("a/b"), "id-e620c3190468cf614c0f7f1b42f0fe6c") << "state would be lost";
}

}  // namespace

}  // namespace kivo::platform
