// How long a host waits over a slow line, with Kivo: first|both|burst|silence.

#include "benchmarks/OutcomeLines.h"
#include "benchmarks/RoundTrips.h"
#include "kivo/platform/Bundle.h"
#include "kivo/sdk/KivoSDK.h"

KIVO_BUNDLE_IDENTIFIER("com.example.benchmark")

using namespace kivo::benchmarks;

int main(int argc, char** argv) {
    const Scene scene = sceneNamed(argc > 1 ? argv[1] : "");
    double begin = millisecondsNow();
    const auto plugin = kivo::KivoSDK::initialise({.apiKey = "benchmark"});
    if (scene != Scene::first) plugin->setUser("40", "711234567", "ana@example.com", "Ana");
    OutcomeLines::await(scene == Scene::first ? 1 : 2);
    if (endsInBurst(scene)) {
        awaitSilence(scene);
        begin = millisecondsNow();
        for (int call = 0; call < burstSize; ++call)
            plugin->updateDeviceToken(std::string(deviceToken));
        OutcomeLines::await(burstSize);
    }
    reportMilliseconds(millisecondsNow() - begin);
    std::_Exit(0);
}
