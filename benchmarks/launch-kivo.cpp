// From main() to the first replies: "first" awaits the SDK's authentication; "both" starts it and
// the user's together and awaits both. The process then stays, at rest, until its input ends.

#include "benchmarks/OutcomeLines.h"
#include "benchmarks/Workload.h"
#include "kivo/platform/Bundle.h"
#include "kivo/sdk/KivoSDK.h"

KIVO_BUNDLE_IDENTIFIER("com.example.benchmark")

int main(int argc, char** argv) {
    using namespace kivo::benchmarks;
    const Meter meter;
    const bool withUser = argc > 1 && std::string_view(argv[1]) == "both";
    const auto plugin = kivo::KivoSDK::initialise({.apiKey = "benchmark"});
    if (withUser) plugin->setUser("40", "711234567", "ana@example.com", "Ana");
    OutcomeLines::await(withUser ? 2 : 1);
    meter.report(1);
    std::getchar();
}
