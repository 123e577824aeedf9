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

TEST(AdminTest, ObeysProgramsHereAndNoOtherSitesPages) {
    backend::Desk desk({}, [](const auto&) {});
    desk.open();
    const auto ask = [&](const backend::Request& request) { return adminReply(desk, request); };
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

TEST(AdminServerTest, IsNotAProxy) {
    backend::Desk desk({}, [](const auto&) {});
    desk.open();
    const backend::AdminServer server(desk, 0);
    boost::asio::ip::tcp::iostream client("127.0.0.1", std::to_string(server.port()));
    client << "CONNECT localhost:1 HTTP/1.1\r\n\r\n" << std::flush;
    std::string status;
    std::getline(client, status);
    EXPECT_EQ(status, "HTTP/1.1 403 Forbidden\r");
}

TEST(AdminTest, RefusesWhatItDoesNotUnderstand) {
    backend::Desk desk({}, [](const auto&) {});
    desk.open();
    const auto ask = [&](const backend::Request& request) { return adminReply(desk, request); };
    const std::vector<std::tuple<std::string, std::string, std::string, int, std::string>> cases{
        {"POST", "/faults", "{", 400, "no JSON object"},
        {"POST", "/faults", R"({"rule":7})", 400, "wrong type"},
        {"POST", "/faults", R"({"rule":"img:lunch"})", 400, "no kind of fault"},
        {"POST", "/expire", "[]", 400, "no JSON object"},
        {"POST", "/expire", R"({"kind":"x"})", 400, "say user, merchant or all"},
        {"POST", "/images?file=a.png", "", 400, "empty"},
        {"POST", "/expectations", R"({"words":["x"]})", 400, "no endpoint"},
        {"GET", "/requests?after=x", "", 200, R"({"requests":[]})"},
        {"PUT", "/state", "", 404, "cannot do that: PUT /state"}};
    for (const auto& [method, target, body, status, text] : cases) {
        const auto reply = ask(
            {.method = method, .target = target, .headers = {{"Host", "localhost"}}, .body = body});
        EXPECT_EQ(reply.status, status) << target << body;
        EXPECT_THAT(reply.body, HasSubstr(text));
    }
}

using CommandsTest = ProgramTest;

TEST_F(CommandsTest, SteerABackendThatRuns) {
    const auto printed = run(R"(
        kivo serve --port 0 --strict --ready-fd 3 3>ready >log & server=$!
        { read -r port trust; read -r KIVO_DEV_ADMIN_PORT; } <ready; export KIVO_DEV_ADMIN_PORT
        get() { printf "GET $1 HTTP/1.1\r\nConnection: close\r\n\r\n" |
            openssl s_client -quiet -connect localhost:$port -CAfile $trust 2>/dev/null | tail -n1; }
        (kivo fault add img:garbage:times=1); get /img/a | wc -c; (kivo fault list)
        (kivo fault clear img:hang); (kivo fault clear)
        printf picture >a.png; (kivo push --image-file a.png) | grep image; get /img/push-1.png; echo
        (kivo expect img/push-1.png status=200); (kivo expect user/unset --within 1ms)
        get /api/communication/user/unset >/dev/null; (kivo expect 'user/unset status=405')
        (kivo state); (kivo requests) | cut -c15-; (kivo reset); (kivo requests); (kivo expire all)
        kill $server; wait $server; echo status $?; (kivo state); (kivo ca path)
        sed "s|:$port/|:PORT/|; s|$trust|TRUST|" log)");
    for (const auto* part :
         {"added img:garbage:times=1\n", "  img:garbage:times=1  (1 hit)\n",
          "no fault is written img:hang; see: kivo-dev fault list\n", "cleared 1 fault\n",
          "/img/push-1.png\"\n", "picture\n", "  hit 1\n", "none came to that endpoint at all\n",
          "  push-1.png  (1 hit)\n", "  broke the contract  1\n",
          " ms  fault img:garbage:times=1\n", "reset\nexpired: all\n",
          "--strict: 1 request broke the contract", "status 1\nkivo-dev: no kivo-dev answers at",
          "start one with: kivo-dev serve", "/kivo-dev/ca.pem\n", "  https://localhost:PORT/\n",
          "SSL_CERT_FILE=TRUST\n", "GET /img/push-1.png  200  "})
        EXPECT_THAT(printed, HasSubstr(part));
}

}  // namespace

}  // namespace kivo::tests
