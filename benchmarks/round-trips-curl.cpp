// How long a host waits over a slow line, with libcurl alone: first|both|burst|silence, then the
// load.

#include "benchmarks/CurlHandles.h"
#include "benchmarks/RoundTrips.h"

using namespace kivo::benchmarks;

namespace {

void callAtOnce(CurlHandles& handles, int calls) {
    for (int call = 0; call < calls; ++call) handles.begin();
    while (calls > 0) {
        const int ended = handles.perform();
        calls -= ended;
        if (ended == 0) handles.wait();
    }
}

}  // namespace

int main(int argc, char** argv) {
    const Scene scene = sceneNamed(argc > 1 ? argv[1] : "");
    double begin = millisecondsNow();
    const Load load(argc - 1, argv + 1);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CurlHandles handles(load);
    callAtOnce(handles, 1);
    if (scene != Scene::first) callAtOnce(handles, 1);
    if (endsInBurst(scene)) {
        awaitSilence(scene);
        begin = millisecondsNow();
        callAtOnce(handles, burstSize);
    }
    reportMilliseconds(millisecondsNow() - begin);
}
