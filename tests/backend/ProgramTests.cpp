#include <gmock/gmock.h>

#include <cstdio>

#include "backend/run/Interception.h"
#include "backend/run/UpstreamProxies.h"
#include "tests/support/TemporaryDirectory.h"

namespace kivo::tests {

namespace {

using testing::ElementsAre;

/// Shell commands, and a regular expression that occurs in what they print.
struct Step {
    std::string commands;
    std::string prints;
};

/// Runs kivo-dev itself, from shell scripts.
class ProgramTest : public testing::Test {
protected:
    /// Runs the steps in one shell, after a preparation that prints nothing. There, "kivo" replaces
    /// the shell with the program, which is killed if it takes too long, and "ready" is a pipe.
    void expectSteps(const std::string& preparation, const std::vector<Step>& steps) const {
        std::string script =
            "exec 2>&1; cd " + folder_.path().string() + "; mkfifo ready; export TMPDIR=$PWD\n" +
            "unset SSL_CERT_DIR SSL_CERT_FILE; dev=" KIVO_DEV_PROGRAM "\n" +
            "kivo() { XDG_DATA_HOME=$PWD exec timeout -s KILL 100 $dev \"$@\"; }\n" + preparation;
        for (const auto& step : steps) script += "\nprintf '\\036'\n" + step.commands;
        FILE* output = popen(script.c_str(), "re");
        EXPECT_EQ(nextPart(output), "");
        for (const auto& step : steps)
            EXPECT_THAT(nextPart(output), testing::ContainsRegex(step.prints)) << step.commands;
        pclose(output);
    }

private:
    static std::string nextPart(FILE* output) {
        std::string part;
        for (int next = 0; (next = std::fgetc(output)) != EOF && next != '\x1e';)
            part += static_cast<char>(next);
        return part;
    }

    TemporaryDirectory folder_;
};

TEST_F(ProgramTest, CommandsControlARunningBackend) {
    const std::string preparation = R"(
        kivo serve --port 0 --strict --ready-fd 3 3>ready >log & server=$!
        { read -r port trust; read -r KIVO_DEV_ADMIN_PORT; } <ready; export KIVO_DEV_ADMIN_PORT
        twice="X-Platform: a\r\nx-platform: b"
        whole() { printf "GET $1 HTTP/1.1\r\n$twice\r\nConnection: close\r\n\r\n" |
            openssl s_client -quiet -connect localhost:$port -CAfile $trust 2>/dev/null; }
        get() { whole $1 | tail -n1; }
        printf picture >a.png)";
    const std::string address = R"(sed "s|:$port/|:PORT/|; s|$trust|TRUST|" log)";
    expectSteps(
        preparation,
        {{"(kivo fault add img:garbage:times=1)", "^added img:garbage:times=1\n$"},
         {"get /img/a >garbage; (kivo fault list)", "\n  img:garbage:times=1  .1 hit.\n$"},
         {"(kivo fault add img:bomb:times=1); whole /img/a | LC_ALL=C sed '1,/^.$/d' | python3 -c '"
          "import sys, zlib; body = sys.stdin.buffer.read(); "
          "print(len(zlib.decompressobj(31).decompress(body, 2**26)), body[-8:].hex())'",
          "^added img:bomb:times=1\n67108864 b0c2645b00000040\n$"},  // Checksum and length of 1
                                                                     // GiB.
         {"(kivo fault clear img:hang)", "no fault img:hang; see: kivo-dev fault list\n$"},
         {"(kivo fault clear)", "^cleared 2 faults\n$"},
         {"(kivo push --image-file a.png)", "/img/push-1.png\"\n"},
         {"get /img/push-1.png", "^picture$"},
         {"openssl s_client -proxy 127.0.0.1:$KIVO_DEV_ADMIN_PORT -connect localhost:$port",
          "CONNECT failed.*403 Forbidden"},
         {"(kivo expect img/push-1.png status=200)", "  hit 1\n$"},
         {"(kivo expect user/unset --within 1ms)", "there was none to that endpoint\n$"},
         {"get /api/communication/user/unset >log2; (kivo expect 'user/unset status=405')",
          "BROKEN: .*; x-platform appears 2 times"},
         {"(kivo expect img/push-1.png --none --within 1ms); echo $?",
          "a matching request arrived\n  [^\n]*\n1\n$"},
         {"(kivo expect consent --none --within 1ms); echo $?",
          "^no matching request within 1 ms\n0\n$"},
         {"(kivo expect unset --count 1) && (kivo expect unset --count 2 --within 1ms); echo $?",
          "expected 2 matching requests, not 1; .*\n1\n$"},
         {"(kivo expect img/a then 'img/push-1.png status=200' then unset); echo $?",
          "^[^\n]*/img/a  .*/img/push-1.png  .*/user/unset  .*\n0\n$"},
         {"(kivo expect unset then img/a --within 1ms); echo $?",
          "matches \"img/a\" arrived within 1 ms; there was none to that endpoint\n1\n$"},
         {"(kivo expect 'unset sessionId=\"a b\" status=401' --within 1ms)",
          "the nearest was\n.*\n  the status is 405, not 401; the body is not a JSON object\n$"},
         {"(kivo expect unset --after $($dev state --json | grep -o 'newest.:[0-9]*' | cut -d: "
          "-f2) "
          "--within 1ms)",
          "there was none to that endpoint\n$"},
         {"(kivo fault add img:hang) >log2; get /img/b >hung & until $dev fault list | grep -q '1 "
          "hit'; do sleep .02; done; (kivo fault clear); wait $!; [ -s hung ] && echo answered",
          "^cleared 1 fault\nanswered\n$"},
         {"bash -c 'for i in $(seq 64); do exec {f}<>/dev/tcp/127.0.0.1/$KIVO_DEV_ADMIN_PORT; "
          "done; "
          "'$dev' state'; echo $?",
          "^kivo-dev: 64 admin connections are open.*\n3\n$"},
         {"(kivo state)", "\n  push-1.png  .1 hit.\n.*\n  broke the contract  1\n$"},
         {"(kivo requests)", " ms  fault img:garbage:times=1\n"},
         {"(kivo requests --endpoint unset --broken --status 405 --limit 1)",
          "^[0-9]{4}-[0-9]{2}-[0-9]{2}, times in UTC[+-][0-9:]{5}\n[^\n]*/unset  405  [^\n]*\n$"},
         {"TERM=xterm script -qec \"$dev requests\" /dev/null", "\x1b.32m200\x1b"},
         {"TERM=xterm NO_COLOR=1 script -qec \"$dev requests\" /dev/null", "  200  "},
         {"(kivo reset); (kivo requests)", "^reset\n$"},
         {"(kivo expire all)", "^expired: all\n$"},
         {"kill $server; wait $server; echo $?", "--strict: 1 request broke the contract.*\n1\n$"},
         {"(kivo state)", "no kivo-dev is running at .*start one with: kivo-dev serve"},
         {"(kivo expect unset --none --within 1ms); echo $?", "no kivo-dev is running.*\n3\n$"},
         {"(kivo ca path)", "/kivo-dev/ca.pem\n$"},
         {address, "  https://localhost:PORT/\n.*=TRUST\n.*GET /img/push-1.png  200  "}});
}

TEST_F(ProgramTest, ServeGoesOnAndEndsThoughNobodyReadsWhatItPrints) {
    const std::string endedBy = R"(
        ask() { printf 'GET /img/a HTTP/1.1\r\nConnection: close\r\n\r\n' | timeout 10 \
            openssl s_client -quiet -connect localhost:$port -CAfile $trust 2>/dev/null |
            head -n1; }
        endedBy() { kivo serve --port 0 --ready-fd 3 3>ready >&4 2>&4 & read -r port trust <ready
            ask; ask; kill -$1 $!; wait $!; echo $?; })";
    expectSteps(
        "mkfifo full; exec 4<>full; dd if=/dev/zero of=full bs=4096 oflag=nonblock 2>/dev/null\n" +
            endedBy,
        {{"endedBy INT", "^HTTP/1.1 200 OK.\nHTTP/1.1 200 OK.\n0\n$"}, {"endedBy TERM", "\n0\n$"}});
}

TEST_F(ProgramTest, AMistakeEndsItWithAdvice) {
    expectSteps(
        "kivo serve --port 0 --ready-fd 3 3>ready >log & read -r port trust <ready",
        {{"(kivo serve --port $port); echo $?",
          "port [0-9]+ is already in use.* --port N .*\n3\n$"},
         {"(kivo serve --port 0 --admin-port $port); echo $?", "in use.* --admin-port N .*\n3\n$"},
         {"kill $!; (kivo serve --ready-fd 9 9>&-); echo $?", "descriptor 9 is not open.*\n2\n$"},
         {"(kivo serve --fault img:lunch); echo $?", "\"lunch\" is not a kind of fault.*\n2\n$"},
         {"(kivo serve --port=x); echo $?", "--port: \"x\" is not a whole number.* 65535\n2\n$"},
         {"(kivo serve --latnecy 3)", "has no option --latnecy; did you mean --latency\\?\n$"},
         {"(kivo state --admin-port)", "--admin-port needs a value; see: kivo-dev help state\n$"},
         {"(kivo serve --strict=no)", "--strict takes no value; see: kivo-dev help serve\n$"},
         {"(kivo requests --limit 2 --limit 3)", "--limit may be given only once; see: "},
         {"(kivo expect unset --none --count 2)", "--none and --count exclude each other; see: "},
         {"(kivo help)", "\n  3    no backend is running, or none could be started\n  126  "},
         {"(kivo fault ad x)", "^kivo-dev: fault has no command ad; did you mean add\\?\n$"},
         {"(kivo run --host 1.2.3.4 -- true); echo $?", "--host takes a DNS name.*\n2\n$"},
         {"(kivo run -- ./missing) >out; echo $?",
          "cannot start ./missing: .*path right.*\n127\n$"},
         {"(kivo run -- .) >out; echo $?", "cannot start .: .*is it executable.*\n126\n$"},
         {"(kivo); echo $?", "the command is missing; choose one of serve, run, .*\n2\n$"},
         {"(kivo --version)", "^kivo-dev [0-9.]+\n$"},
         {"(kivo pages $PWD); bash -c '. ./kivo-dev.bash; COMP_CWORD=2 COMP_WORDS=(kivo-dev fault "
          "a);"
          "_kivo_dev; echo $COMPREPLY'",
          "^add\n$"},
         {"grep -A1 'SS kivo..dev fault add' kivo-dev.1", "Adds a fault, as in user/unset:401"}});
}

/// "ask HOST:PORT" sends a request for an image over TLS through the proxy, as an application does.
const std::string ask = R"(
    cat >ask <<'END'
    printf "${2:-GET} ${3:-/img/a} HTTP/1.1\r\nConnection: close\r\n\r\n" |
        openssl s_client -quiet -proxy ${HTTPS_PROXY#http://} -connect $1 -CAfile $SSL_CERT_FILE \
            -verify_return_error -verify_hostname ${1%:*} 2>/dev/null | head -n1
END
)";

TEST_F(ProgramTest, RunAnswersForTheBaseUrlsAndForwardsToAllOtherHosts) {
    const std::string preparation = ask + R"(
        kivo serve --port 0 --ready-fd 3 3>ready >log &
        { read -r port trust; read -r admin; read -r trusted_by_clients; } <ready
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
         {"HTTPS_PROXY=http://127.0.0.1:$port SSL_CERT_FILE=$trusted_by_clients sh ask "
          "api.kivo.example:443",
          "^HTTP/1.1 200 OK"},
         {"kill $!; wait $!; grep -c /img/a log", "^2\n$"},
         {"until [ ! -e kivo-dev-run* ]; do sleep .02; done", "^$"},
         {"grep -c '^backend .*GET /img/a  200' out", "^2\n$"},
         {"grep -c '^app     | HTTP/1.1 200 OK' out", "^3\n$"},
         {"grep 'answered here' out", "api.kivo.example:443[^\n]*, extra.example\n"},
         {"grep -c '^app.*_proxy=\\?x$' out; grep -c NO_PROXY out", "^1\n0\n$"},
         {"grep HTTPS_PROXY out", "^app     . HTTPS_PROXY=http://127.0.0.1:[0-9]+\n$"},
         {"grep https_proxy out", "^app     . https_proxy=http://127.0.0.1:[0-9]+\n$"},
         {"grep expected out", " 1\n$"},
         {"grep mode out", " 600\n$"},
         {"grep -c 'inherited nothing' out; grep -c 'app     | unended' out", "^1\n1\n$"},
         {"tail -n3 out", "^kivo-dev: the program ended with status 7\n  images  2\n  0 refresh"}});
}

TEST_F(ProgramTest, RunEndsAsTheProgramEnds) {
    const std::string signalled = R"(signalled() {
        kivo run -- sh -c 'setsid sh -c "echo \$\$ >ready; exec sleep 20" & exec sleep 60' >log &
        read -r left <ready; kill -$1 $!; wait $!; echo $?; kill $left && echo not waited for; })";
    const std::string strict =
        "(kivo run --strict -- sh ask api.kivo.example:443 PUT /api/communication/user/unset) >log";
    expectSteps(ask + signalled,
                {{"signalled INT", "^130\nnot waited for\n$"},
                 {"signalled TERM", "^143\nnot waited for\n$"},
                 {strict + "; echo $?; grep -c BROKEN log", "^1\n1\n$"},
                 {"(kivo run -- sh -c 'setsid yes & exit 3') >log; echo $?", "^3\n$"},
                 {"grep -c 'with status 3' log", "^1\n$"},
                 {"until [ ! -e kivo-dev-run* ]; do sleep .02; done", "^$"}});
}

TEST_F(ProgramTest, RunIsNotInTheWay) {
    const std::string preparation = ask + R"(
        background() { $dev run "$@" >out 2>&1 & read -r pid <ready; }
        gone() { for i in $(seq 200); do [ -d /proc/$1 ] || break; sleep .02; done
                 grep -qs State:.Z /proc/$1/status || [ ! -d /proc/$1 ] && echo gone; }
        other() { [ $(id -u) = 0 ] || { echo unknown; return; }
            setpriv --reuid 65534 --clear-groups bash -c "exec 3<>/dev/tcp/${1%:*}/${1#*:}
                printf 'CONNECT a:1 HTTP/1.1\r\n\r\n' >&3; head -n1 <&3" 2>/dev/null; })";
    expectSteps(
        preparation,
        {{"(kivo run -- sh -c 'while echo ready; do :; done') | grep -m1 -o ready; echo left",
          "^ready\nleft\n$"},
         {"mkfifo line; (kivo run -- sh -c 'printf name?; read -r x; echo $x' <line >prompt &)\n"
          "exec 5>line; until grep -qs name prompt; do sleep .05; done; echo shown; echo Ana >&5",
          "^shown\n$"},
         {"background -- sh -c 'trap \"echo >ready\" INT; echo $$ >ready; while :; do sleep .1; "
          "done'\n"
          "kill -INT $!; until read -r trapped <ready; do :; done; kill -INT $!; wait $!; echo $?; "
          "grep -o 'ended "
          "by.*' out",
          "^137\nended by signal 9 .SIGKILL.\n$"},
         {"background -- sh -c 'echo $$ >ready; exec sleep 60'\n"
          "until grep -qs page out; do sleep .02; done; kill -KILL $!; gone $pid; until [ ! -e "
          "kivo-dev-run* ]; do sleep .02; done",
          "^gone\n$"},
         {"(kivo run --quiet --log log --report a.xml --report b.har --fresh -- sh -c '"
          "sh ask api.kivo.example:443; sh ask api.kivo.example:443 PUT /api/communication/x; "
          "ls $XDG_STATE_HOME; grep -c BEGIN.CERT $SSL_CERT_FILE'); cat log",
          "^HTTP/1.1 200 OK.\nHTTP/1.1 404 Not Found.\n[^\n]*\n[0-9]+\n[^\n]* GET /img/a  200 "
          ".*BROKEN"},
         {"cat a.xml b.har",
          "tests=\"3\" failures=\"1\".*<failure message=\"BROKEN: .*\"version\": \"1.2\""},
         {"(kivo run -- sh -c 'kill -ABRT $$'); echo $?",
          "aborted, .*KIVO_BUNDLE_IDENTIFIER.*\n134\n$"},
         {"(kivo run -- true)", "no requests arrived; most likely it ended before"},
         {"background -- sh -c 'echo ${https_proxy#http://} >ready; exec sleep 20'\n"
          "other $pid; kill -INT $!; wait $!",
          "^(unknown\n)?$"},
         {"kivo serve --port 0 --ready-fd 3 3>ready >log & read -r port trust <ready\n"
          "other 127.0.0.1:$port; kill $!; wait $!",
          "^(unknown|HTTP/1.1 403 Forbidden.)\n$"},
         {"(kivo run -- sh -c 'head -c 200000 /dev/zero | tr \"\\0\" x; echo oops >&2\n"
          "until grep -q oops out; do sleep .02; done; echo end') >out 2>&1; "
          "grep -o 'rest of.*' out",
          "^rest of a long line. x*end\n$"}});
}

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

TEST(UpstreamProxiesTest, SpareWhatNoProxyNames) {
    const auto proxyFor = backend::upstreamProxies(
        {"https_proxy=http://us%65r@proxy.example:3128/", "no_proxy=a.example, .b.example:444"},
        [](const std::string& warning) { FAIL() << warning; });
    for (const auto* target : {"a.example:443", "x.a.example:1", "b.example:444", "[::1]:1"})
        EXPECT_FALSE(proxyFor(target)) << target;
    for (const auto* target : {"xa.example:443", "a.example.org:443", "b.example:443"}) {
        const auto proxy = proxyFor(target);
        ASSERT_TRUE(proxy) << target;
        EXPECT_EQ(proxy->address.host + " " + proxy->credentials, "proxy.example user");
    }
}

}  // namespace

}  // namespace kivo::tests
