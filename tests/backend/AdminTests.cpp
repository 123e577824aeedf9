#include <boost/asio/ip/tcp.hpp>
#include <gmock/gmock.h>

#include "backend/admin/Admin.h"
#include "backend/admin/AdminServer.h"
#include "backend/desk/Desk.h"
#include "tests/backend/Program.h"

namespace kivo::tests {

namespace {

using backend::Header;
using testing::HasSubstr;

class AdminTest : public testing::Test {
protected:
    AdminTest() { desk.open(); }
    backend::Reply ask(const backend::Request& request) { return adminReply(desk, request); }

    backend::Desk desk{{}, [](const auto&) {}};
};

TEST_F(AdminTest, ObeysProgramsHereAndNoOtherSitesPages) {
    const auto status = [&](const std::vector<Header>& headers) {
        return ask({.method = "GET", .target = "/state", .headers = headers}).status;
    };
    const std::string origin = "Origin";
    EXPECT_EQ(status({{"host", "LOCALHOST:8444"}}), 200);
    EXPECT_EQ(status({{"Host", "[::1]:8444"}, {origin, "http://[::1]:8444"}}), 200);
    EXPECT_EQ(status({{"Host", "127.0.0.1"}, {origin, "http://127.0.0.1"}}), 200);
    EXPECT_EQ(status({{"Host", "evil.example:8444"}}), 403);
    EXPECT_EQ(status({{"Host", "localhost.evil.example"}}), 403);
    EXPECT_EQ(status({{"Host", "localhost"}, {"Host", "localhost"}}), 403);
    EXPECT_EQ(status({}), 403);
    for (const auto* foreign : {"null", "http://evil.example", "http://localhost:1", ""})
        EXPECT_EQ(status({{"Host", "localhost:8444"}, {origin, foreign}}), 403) << foreign;
}

TEST_F(AdminTest, IsNotAProxy) {
    const backend::AdminServer server(desk, 0);
    boost::asio::ip::tcp::iostream client("127.0.0.1", std::to_string(server.port()));
    client << "CONNECT localhost:1 HTTP/1.1\r\n\r\n" << std::flush;
    std::string status;
    std::getline(client, status);
    EXPECT_EQ(status, "HTTP/1.1 403 Forbidden\r");
}

TEST_F(AdminTest, RefusesWhatItDoesNotUnderstand) {
    const std::vector<std::tuple<std::string, std::string, std::string, int, std::string>> cases{
        {"POST", "/faults", "{", 400, "not a JSON object"},
        {"POST", "/faults", R"({"rule":7})", 400, "wrong type"},
        {"POST", "/faults", R"({"rule":"img:lunch"})", 400, "not a kind of fault"},
        {"POST", "/expire", "[]", 400, "not a JSON object"},
        {"POST", "/expire", R"({"kind":"x"})", 400, "must be user, merchant or all"},
        {"POST", "/images?file=a.png", "", 400, "empty"},
        {"POST", "/expectations", R"({"words":["x"]})", 400, "not an endpoint"},
        {"GET", "/requests?after=x", "", 200, R"({"requests":[]})"},
        {"PUT", "/state", "", 404, "no admin request PUT /state"}};
    for (const auto& [method, target, body, status, text] : cases) {
        const auto reply = ask(
            {.method = method, .target = target, .headers = {{"Host", "localhost"}}, .body = body});
        EXPECT_EQ(reply.status, status) << target << body;
        EXPECT_THAT(reply.body, HasSubstr(text));
    }
}

using CommandsTest = ProgramTest;

TEST_F(CommandsTest, ControlARunningBackend) {
    const std::string preparation = R"(
        kivo serve --port 0 --strict --ready-fd 3 3>ready >log & server=$!
        { read -r port trust; read -r KIVO_DEV_ADMIN_PORT; } <ready; export KIVO_DEV_ADMIN_PORT
        get() { printf "GET $1 HTTP/1.1\r\nConnection: close\r\n\r\n" |
            openssl s_client -quiet -connect localhost:$port -CAfile $trust 2>/dev/null | tail -n1; }
        printf picture >a.png)";
    const std::string address = R"(sed "s|:$port/|:PORT/|; s|$trust|TRUST|" log)";
    expectSteps(
        preparation,
        {{"(kivo fault add img:garbage:times=1)", "^added img:garbage:times=1\n$"},
         {"get /img/a >garbage; (kivo fault list)", "\n  img:garbage:times=1  .1 hit.\n$"},
         {"(kivo fault clear img:hang)", "no fault img:hang; see: kivo-dev fault list\n$"},
         {"(kivo fault clear)", "^cleared 1 fault\n$"},
         {"(kivo push --image-file a.png)", "/img/push-1.png\"\n"},
         {"get /img/push-1.png", "^picture$"},
         {"(kivo expect img/push-1.png status=200)", "  hit 1\n$"},
         {"(kivo expect user/unset --within 1ms)", "there was none to that endpoint\n$"},
         {"get /api/communication/user/unset >log2; (kivo expect 'user/unset status=405')",
          "BROKEN"},
         {"(kivo state)", "\n  push-1.png  .1 hit.\n.*\n  broke the contract  1\n$"},
         {"(kivo requests)", " ms  fault img:garbage:times=1\n"},
         {"(kivo reset); (kivo requests)", "^reset\n$"},
         {"(kivo expire all)", "^expired: all\n$"},
         {"kill $server; wait $server; echo $?", "--strict: 1 request broke the contract.*\n1\n$"},
         {"(kivo state)", "no kivo-dev is running at .*start one with: kivo-dev serve"},
         {"(kivo ca path)", "/kivo-dev/ca.pem\n$"},
         {address, "  https://localhost:PORT/\n.*=TRUST\n.*GET /img/push-1.png  200  "}});
}

}  // namespace

}  // namespace kivo::tests
