// What an operation that is under way costs in memory: says "ready", is told to go on once the
// server has been halted, and then starts 10,000 operations.

#include <thread>

#include "benchmarks/OutcomeLines.h"
#include "benchmarks/Workload.h"
#include "kivo/platform/Bundle.h"
#include "kivo/sdk/KivoSDK.h"

KIVO_BUNDLE_IDENTIFIER("com.example.benchmark")

namespace {

constexpr int operations = 10'000;
constexpr std::chrono::seconds untilSettled{2};

}  // namespace

int main() {
    using namespace kivo::benchmarks;
    const auto plugin = kivo::KivoSDK::initialise({.apiKey = "benchmark"});
    OutcomeLines::await();
    plugin->setUser("40", "711234567", "ana@example.com", "Ana");
    OutcomeLines::await();

    std::fprintf(stderr, "ready\n");
    std::getchar();
    const long before = processStatus("RssAnon");
    for (int count = 0; count < operations; ++count)
        plugin->updateDeviceToken(std::string(deviceToken));
    std::this_thread::sleep_for(untilSettled);
    const long grown = processStatus("RssAnon") - before;
    std::fprintf(stderr,
                 R"({"bytes": %ld})"
                 "\n",
                 grown * 1024 / operations);
    std::_Exit(0);
}
