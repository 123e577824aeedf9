#include <gmock/gmock.h>

#include "kivo/platform/http/HTTPTransfer.h"
#include "tests/platform/Load.h"

namespace kivo::tests {

namespace {

using namespace platform;
using namespace std::chrono_literals;

constexpr auto dataLimit = HTTPTransfer::maximumBodySize;
const auto response = std::make_shared<HTTPURLResponse>(requestFor("odd:url").url(), 201);
const auto error = std::make_exception_ptr(URLError(URLError::cannotFindHost));

/// A protocol that plays to its client what the test at hand says.
struct OddProtocol final : URLProtocol {
    using URLProtocol::URLProtocol;
    static bool canInit(const URLRequest&) { return true; }
    static URLRequest canonicalRequest(const URLRequest&) { return requestFor("odd:canonical"); }

    void startLoading() override {
        ++started;
        latest = weak_from_this();
        EXPECT_TRUE(Loop::isCurrent());
        EXPECT_EQ(request().url().absoluteString(), "odd:canonical");
        play(calls);
    }
    void stopLoading() override { ++stopped; }

    void play(std::string_view letters) {
        for (const char letter : letters) call(letter);
    }

    /// 8 is half the data that is allowed, ~ bytes until the stop, else a byte.
    void call(char letter) {
        switch (letter) {
            case 'R': return client().urlProtocolDidReceive(response, CacheStoragePolicy::allowed);
            case 'F': return client().urlProtocolDidFinishLoading();
            case 'E': return client().urlProtocolDidFailWithError(error);
            case '8': return client().urlProtocolDidLoad(Data(dataLimit / 2, letter));
            case '~': return drip();
            default: client().urlProtocolDidLoad(Data(1, letter));
        }
    }

    /// A byte a turn of the loop until the stop.
    void drip() {
        if (stopped > 0) return;
        play("x");
        loop().submit([self = shared_from_this(), this] { drip(); });
    }

    static inline std::string_view calls;
    static inline std::weak_ptr<URLProtocol> latest;
    static inline std::atomic<int> started = 0, stopped = 0;
};

/// A load whose session has gone.
Load load(std::string_view calls, std::chrono::milliseconds limit = patience) {
    OddProtocol::calls = calls;
    OddProtocol::started = OddProtocol::stopped = 0;
    const URLSession session(
        {.protocolClasses = {protocolClass<OddProtocol>()}, .timeoutIntervalForResource = limit});
    return Load(session, requestFor("odd:thing"));
}

/// However a load ends, its protocol is stopped and let go.
void expectEnd(Load& load, const testing::Matcher<std::string>& outcome) {
    EXPECT_THAT(load.resume().outcome(), outcome);
    settle();
    EXPECT_EQ(OddProtocol::stopped, OddProtocol::started);
    EXPECT_TRUE(OddProtocol::latest.expired());
}

TEST(SessionTest, CallsInAnyOrderAreTakenUntilTheFirstTerminalOneOrTheTotalLimit) {
    const std::pair<const char*, std::string> table[] = {
        {"F", " "},         {"aRbcF", "201 abc"}, {"RFF", "201 "},
        {"aFE", " a"},      {"aFRb", " a"},       {"RaEF", "-1003"},
        {"RaEEb", "-1003"}, {"88xF", "-1103"},    {"88F", " " + std::string(dataLimit, '8')},
        {"", "-1001"},      {"R~", "-1001"}};
    for (const auto& [calls, outcome] : table) {
        const auto limit = outcome == "-1001" ? 200ms : std::chrono::milliseconds(patience);
        Load odd = load(calls, limit);
        const auto begin = std::chrono::steady_clock::now();
        expectEnd(odd, outcome);
        EXPECT_EQ(std::chrono::steady_clock::now() - begin >= limit, outcome == "-1001");
    }
}

TEST(SessionTest, ResumedAndCancelledFromManyThreadsAtOnceItHasOneOutcome) {
    for (int round = 0; round < 200; ++round) {
        Load odd = load("xRF");
        onThreads(3, [&](int i) { i + round % 2 == 0 ? odd.cancel() : void(odd.resume()); });
        expectEnd(odd, testing::AnyOf("-999", "201 x"));
    }
}

TEST(SessionTest, CancelEndsALoadThatHasNotBegunAndOneThatRuns) {
    Load never = load("F");
    never.cancel();
    expectEnd(never, "-999");
    EXPECT_EQ(OddProtocol::started, 0);

    Load running = load("");
    running.resume().resume();
    passTheLoop();
    EXPECT_EQ(OddProtocol::started, 1);
    EXPECT_FALSE(OddProtocol::latest.expired()) << "owned by its load alone";
    EXPECT_FALSE(loop().waitUntilIdle(0ms));
    for (int round = 0; round < 2; ++round) running.cancel();
    expectEnd(running, "-999");
}

}  // namespace

}  // namespace kivo::tests
