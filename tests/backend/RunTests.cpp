#include <gmock/gmock.h>

#include "backend/run/Interception.h"
#include "tests/backend/Program.h"

namespace kivo::tests {

namespace {

using testing::ElementsAre;

TEST(InterceptionTest, CoversItsHostsAndPorts) {
    backend::Interception interception;
    for (const auto* url : {"https://API.example/push/", "https://localhost:8443/",
                            "https://[::1]/", "https://10.0.0.1/"})
        interception.addBaseUrl(url);
    interception.addHost("cdn.example");
    interception.addHost("one.example:81");
    for (const auto* target :
         {"api.example:443", "Localhost:8443", "[::1]:443", "cdn.example:1", "one.example:81"})
        EXPECT_TRUE(interception.covers(target)) << target;
    for (const auto* target :
         {"api.example:444", "api.example", "x.api.example:443", "10.0.0.1:443", "localhost:80",
          "one.example:82", "", ":443", "api.example:443x"})
        EXPECT_FALSE(interception.covers(target)) << target;
    EXPECT_THAT(interception.names(), ElementsAre("api.example", "cdn.example", "one.example"));
    for (const auto* host : {"", "10.0.0.1", "https://x", "a b", "x:0", "*.example", "x:1:2"})
        EXPECT_THROW(interception.addHost(host), std::invalid_argument) << host;
}

using RunTest = ProgramTest;

/// "ask HOST:PORT" sends a request for an image over TLS through the proxy, as an application does.
const std::string ask = R"(
    cat >ask <<'END'
    printf "${2:-GET} ${3:-/img/a} HTTP/1.1\r\nConnection: close\r\n\r\n" |
        openssl s_client -quiet -proxy ${HTTPS_PROXY#http://} -connect $1 -CAfile $SSL_CERT_FILE \
            -verify_return_error -verify_hostname ${1%:*} 2>/dev/null | head -n1
END
)";

TEST_F(RunTest, AnswersForTheBaseUrlsAndForwardsToAllOtherHosts) {
    const std::string preparation = ask + R"(
        kivo serve --port 0 --ready-fd 3 3>ready >log & read -r port trust <ready
        export NO_PROXY=* http_proxy=x ALL_PROXY=x SSL_CERT_FILE=$trust
        open=$(ls /proc/self/fd | wc -l); cat >app <<END
        sh ask api.kivo.example:443; sh ask extra.example:99; sh ask localhost:$port
        env | grep -i proxy= | sort; echo expected \$($dev expect img/a | wc -l)
        echo mode \$(stat -c %a \$SSL_CERT_FILE)
        [ \$(ls /proc/self/fd | wc -l) = $open ] && echo inherited nothing
        printf oops >&2; printf unended; exit 7
END
)";
    expectSteps(
        preparation,
        {{"(kivo run --host extra.example -- sh app) >out; echo $?", "^app err . oops\n7\n$"},
         {"ls $PWD | grep trust", "^$"},
         {"grep -c /img/a log; kill $!", "^1\n$"},
         {"grep -c '^backend .*GET /img/a  200' out", "^2\n$"},
         {"grep -c '^app     | HTTP/1.1 200 OK' out", "^3\n$"},
         {"grep 'answered here' out", "api.kivo.example:443[^\n]*, extra.example\n"},
         {"grep -ic 'proxy=' out", "^2\n$"},
         {"grep HTTPS_PROXY out", "^app     . HTTPS_PROXY=http://127.0.0.1:[0-9]+\n$"},
         {"grep https_proxy out", "^app     . https_proxy=http://127.0.0.1:[0-9]+\n$"},
         {"grep expected out", " 1\n$"},
         {"grep mode out", " 600\n$"},
         {"grep -c 'inherited nothing' out; grep -c 'app     | unended' out", "^1\n1\n$"},
         {"tail -n3 out", "^kivo-dev: the program ended with status 7\n  images  2\n  0 refresh"}});
}

TEST_F(RunTest, EndsAsTheProgramEnds) {
    const std::string signalled = R"(signalled() {
        kivo run -- sh -c 'setsid sleep 20 & echo $! >ready; exec sleep 60' >log &
        read -r left <ready; kill -$1 $!; wait $!; echo $?; kill $left && echo not waited for; })";
    const std::string strict =
        "(kivo run --strict -- sh ask api.kivo.example:443 PUT /api/communication/user/unset) >log";
    expectSteps(
        ask + signalled,
        {{"signalled INT", "^130\nnot waited for\n$"},
         {"signalled TERM", "^143\nnot waited for\n$"},
         {strict + "; echo $?; grep -c BROKEN log", "^1\n1\n$"},
         {"(kivo run -- sh -c 'setsid yes & exit 3') >log; echo $?", "^3\n$"},
         {"grep -c 'with status 3' log", "^1\n$"},
         {"(kivo run -- ./missing) >log; echo $?", "cannot start ./missing: .*path right.*\n1\n$"},
         {"(kivo run --host 1.2.3.4 -- true); echo $?", "--host takes a DNS name.*\n1\n$"},
         {"(kivo run); echo $?", "the program is missing.*\n1\n$"},
         {"ls $PWD | grep trust", "^$"}});
}

}  // namespace

}  // namespace kivo::tests
