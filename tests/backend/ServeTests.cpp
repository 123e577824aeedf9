#include <gmock/gmock.h>

#include "tests/backend/Program.h"

namespace kivo::tests {

namespace {

using ServeTest = ProgramTest;

TEST_F(ServeTest, EndsThoughNobodyReadsWhatItPrints) {
    EXPECT_EQ(run(R"(
        mkfifo full; exec 4<>full; dd if=/dev/zero of=full bs=4096 oflag=nonblock 2>/dev/null
        for signal in INT TERM; do
            kivo serve --port 0 --ready-fd 3 3>ready >&4 2>&4 & read -r port trust <ready
            kill -$signal $!; wait $!; echo ${port:+ready} $?
        done)"),
              "ready 0\nready 0\n");
}

TEST_F(ServeTest, SaysWhatToDoAboutAMistake) {
    const std::string preparation =
        "kivo serve --port 0 --ready-fd 3 3>ready >log & read -r port trust <ready";
    expectSteps(
        preparation,
        {{"(kivo serve --port $port); echo $?",
          "port [0-9]+ is already in use.* --port N .*\n1\n$"},
         {"(kivo serve --port 0 --admin-port $port); echo $?", "in use.* --admin-port N .*\n1\n$"},
         {"(kivo serve --port 65536); echo $?", "65536 not in range.*\n1\n$"},
         {"(kivo serve --ttl user=1x); echo $?", "write it like user=15m,merchant=1h.*\n1\n$"},
         {"(kivo serve --ready-fd 9 9>&-); echo $?", "descriptor 9 is not open.*\n1\n$"},
         {"(kivo serve --fault img:lunch); echo $?", "\"lunch\" is not a kind of fault.*\n1\n$"},
         {"(kivo); echo $?; kill $!", "A subcommand is required.*\n1\n$"}});
}

}  // namespace

}  // namespace kivo::tests
