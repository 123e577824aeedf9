#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "kivo/platform/HTTPTransfer.h"
#include "tests/platform/Load.h"

namespace kivo::tests {

namespace {

using namespace platform;
using namespace std::chrono_literals;

/// A protocol that does what the test at hand says.
class OddProtocol final : public URLProtocol {
public:
    OddProtocol(URLRequest request, const CachedURLResponse* cached,
                std::shared_ptr<URLProtocolClient> client)
        : URLProtocol(std::move(request), cached, std::move(client)) {
        ++alive;
    }
    ~OddProtocol() override { --alive; }

    static bool canInit(const URLRequest& request) { return request.url().scheme() == "odd"; }
    static URLRequest canonicalRequest(const URLRequest& request) {
        URLRequest canonical = request;
        canonical.addValue("yes", "canonical");
        return canonical;
    }

    void startLoading() override {
        ++started;
        script(*this);
    }
    void stopLoading() override {
        ++stopped;
        isStopped.release();
    }

    void receive() {
        client().urlProtocolDidReceive(std::make_shared<HTTPURLResponse>(request().url(), 201),
                                       CacheStoragePolicy::notAllowed);
    }
    void load(Data data) { client().urlProtocolDidLoad(std::move(data)); }
    void finish() { client().urlProtocolDidFinishLoading(); }
    void fail() {
        client().urlProtocolDidFailWithError(
            std::make_exception_ptr(URLError(URLError::cannotFindHost)));
    }

    /// Calls its client: R receive, F finish, E fail; other letters are data.
    void play(std::string_view calls) {
        for (const char call : calls) {
            switch (call) {
                case 'R': receive(); break;
                case 'F': finish(); break;
                case 'E': fail(); break;
                default: load(Data(1, call));
            }
        }
    }

    Signal isStopped{0};

    static inline std::function<void(OddProtocol&)> script;
    static inline std::atomic<int> alive = 0;
    static inline std::atomic<int> started = 0;
    static inline std::atomic<int> stopped = 0;
};

/// Accepts what the other one does, and must never be asked to serve it.
struct SecondProtocol final : URLProtocol {
    using URLProtocol::URLProtocol;
    static bool canInit(const URLRequest&) { return true; }
    static URLRequest canonicalRequest(const URLRequest& request) { return request; }
    void startLoading() override { client().urlProtocolDidFinishLoading(); }
    void stopLoading() override {}
};

class SessionTest : public testing::Test {
protected:
    SessionTest() { OddProtocol::started = OddProtocol::stopped = 0; }

    /// However a load ends: one handler call, no protocol left behind.
    ~SessionTest() override {
        settle();
        EXPECT_EQ(OddProtocol::alive, 0);
    }

    Load load(std::function<void(OddProtocol&)> script, const char* url = "odd:thing") {
        OddProtocol::script = std::move(script);
        return Load(session_, requestFor(url));
    }

    Outcome outcome(std::function<void(OddProtocol&)> script) {
        return load(std::move(script)).resume().outcome();
    }

    void limitResource(std::chrono::milliseconds limit) {
        session_ = URLSession({.protocolClasses = {protocolClass<OddProtocol>()},
                               .timeoutIntervalForResource = limit});
    }

private:
    URLSession session_{
        {.protocolClasses = {protocolClass<OddProtocol>(), protocolClass<SecondProtocol>()}}};
};

TEST_F(SessionTest, TheFirstAcceptingClassServesTheCanonicalRequestOffTheCallersThread) {
    bool onPool = false;
    std::optional<std::string> canonical;
    const auto served = outcome([&](OddProtocol& protocol) {
        onPool = TaskPool::isPoolThread();
        canonical = protocol.request().value("canonical");
        protocol.receive();
        protocol.finish();
    });
    EXPECT_EQ(served.status(), 201);
    EXPECT_TRUE(onPool);
    EXPECT_EQ(canonical, "yes");
    EXPECT_EQ(load({}, "other:thing").resume().outcome().data, "") << "served by the second class";
    EXPECT_EQ(Load(URLSession({}), requestFor("odd:thing")).resume().outcome().errorCode, -1002);
}

TEST_F(SessionTest, CallsAreTakenInAnyOrderAndTheFirstTerminalOneDecides) {
    struct Row {
        const char* calls;
        std::optional<Data> data;
        int status;
        int errorCode;
    };
    const std::vector<Row> rows = {
        {"F", "", 0, 0},           // A bare finish gives empty data and no response.
        {"aRbcF", "abc", 201, 0},  // Data may come before the response.
        {"RFF", "", 201, 0},      {"aFE", "a", 0, 0},      {"aFRb", "a", 0, 0},
        {"RaEF", {}, 0, -1003},   {"RaEEb", {}, 0, -1003},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.calls);
        OddProtocol::stopped = 0;
        Load load = this->load([&](OddProtocol& odd) { odd.play(row.calls); });
        const auto outcome = load.resume().outcome();
        settle();
        EXPECT_EQ(outcome.data, row.data);
        EXPECT_EQ(outcome.errorCode, row.errorCode);
        EXPECT_EQ(outcome.status(), row.status);
        EXPECT_EQ(load.handlerCalls(), 1);
        EXPECT_EQ(OddProtocol::stopped, 1);
        EXPECT_EQ(OddProtocol::alive, 0);
    }
}

TEST_F(SessionTest, CallsFromManyThreadsAtOnceGiveOneWholeOutcome) {
    for (int round = 0; round < 50; ++round) {
        Load load = this->load([](OddProtocol& odd) {
            onThreads(6, [&odd](int number) {
                odd.load("x");
                if (number % 2 == 0) odd.receive();
                number == 5 ? odd.fail() : odd.finish();
            });
        });
        const auto outcome = load.resume().outcome();
        EXPECT_EQ(outcome.data.has_value(), outcome.errorCode == 0);
        settle();
        EXPECT_EQ(load.handlerCalls(), 1);
    }
}

TEST_F(SessionTest, AProtocolThatStaysSilentIsEndedByTheTotalLimitAndLetGo) {
    limitResource(200ms);
    const auto begin = std::chrono::steady_clock::now();
    const auto outcome = this->outcome([](OddProtocol&) {});
    EXPECT_EQ(outcome.errorCode, -1001);
    EXPECT_FALSE(outcome.data);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 200ms);
    EXPECT_EQ(OddProtocol::stopped, 1);
}

TEST_F(SessionTest, ActivityDoesNotExtendTheTotalLimit) {
    limitResource(200ms);
    const auto outcome = this->outcome([](OddProtocol& odd) {
        odd.receive();
        for (int round = 0; round < 20'000 && !odd.isStopped.try_acquire_for(1ms); ++round)
            odd.load("x");
    });
    EXPECT_EQ(outcome.errorCode, -1001);
}

TEST_F(SessionTest, CancelEndsALoadOnceWhereverItStands) {
    Load never = load([](OddProtocol&) {});
    never.cancel();
    EXPECT_EQ(never.resume().outcome().errorCode, -999);
    EXPECT_EQ(OddProtocol::started, 0);

    Signal started{0};
    Load running = load([&](OddProtocol&) { started.release(); });
    running.resume().resume();
    started.acquire();
    passBothThreads();
    EXPECT_EQ(OddProtocol::alive, 1) << "owned by its load alone";
    running.cancel();
    running.cancel();
    EXPECT_EQ(running.outcome().errorCode, -999);
    EXPECT_EQ(OddProtocol::started, 1);
    EXPECT_EQ(OddProtocol::stopped, 1);

    Load ended = load([](OddProtocol& odd) { odd.finish(); });
    EXPECT_EQ(ended.resume().outcome().errorCode, 0);
    ended.cancel();
    settle();
    for (const Load* load : {&never, &running, &ended}) EXPECT_EQ(load->handlerCalls(), 1);
}

TEST_F(SessionTest, CancelResumeAndTheProtocolMayRace) {
    for (int round = 0; round < 200; ++round) {
        Load load = this->load([](OddProtocol& odd) { odd.finish(); });
        onThreads(3, [&load](int number) { number == 0 ? load.cancel() : void(load.resume()); });
        EXPECT_THAT(load.outcome().errorCode, testing::AnyOf(0, -999));
        settle();
        EXPECT_EQ(load.handlerCalls(), 1);
    }
}

TEST_F(SessionTest, HandlersOfOneSessionRunOneAtATimeAndAThrowHarmsNobody) {
    int inside = 0;  // Plain: the session must order its handlers.
    int overlapping = 0;
    int handled = 0;
    {
        OddProtocol::script = [](OddProtocol& odd) { odd.finish(); };
        const URLSession session({.protocolClasses = {protocolClass<OddProtocol>()}});
        onThreads(4, [&](int) {
            for (int round = 0; round < 50; ++round) {
                session
                    .dataTask(requestFor("odd:thing"),
                              [&](auto, auto, auto) {
                                  overlapping += inside++ != 0;
                                  ++handled;
                                  --inside;
                                  throw std::runtime_error("dropped");
                              })
                    ->resume();
            }
        });
    }  // The session may go before its loads.
    settle();
    EXPECT_EQ(handled, 200);
    EXPECT_EQ(overlapping, 0);
}

TEST_F(SessionTest, AHandlerThatBlocksHoldsUpItsOwnSessionAlone) {
    Signal blocked{0};
    Signal goOn{0};
    OddProtocol::script = [](OddProtocol& odd) { odd.finish(); };
    const URLSession blocking({.protocolClasses = {protocolClass<OddProtocol>()}});
    blocking
        .dataTask(requestFor("odd:thing"),
                  [&](auto, auto, auto) {
                      blocked.release();
                      goOn.acquire();
                  })
        ->resume();
    blocked.acquire();
    Load heldUp(blocking, requestFor("odd:thing"));
    heldUp.resume();
    EXPECT_EQ(outcome(OddProtocol::script).errorCode, 0);
    EXPECT_FALSE(heldUp.hasEnded());
    goOn.release();
    EXPECT_EQ(heldUp.outcome().errorCode, 0);
}

TEST_F(SessionTest, TheDataOfAProtocolIsBounded) {
    constexpr auto limit = HTTPTransfer::maximumBodySize;
    for (const auto& [extra, code] : {std::pair(0U, 0), std::pair(1U, -1103)}) {
        const auto outcome = this->outcome([more = extra](OddProtocol& odd) {
            odd.load(Data(limit - 1, 'x'));
            odd.load(Data(1 + more, 'x'));
            odd.finish();
        });
        EXPECT_EQ(outcome.errorCode, code);
        EXPECT_EQ(outcome.data.value_or("").size(), code == 0 ? limit : 0);
    }
}

}  // namespace

}  // namespace kivo::tests
