#pragma once

#include <chrono>
#include <cstdio>
#include <string_view>
#include <thread>

#include "benchmarks/Workload.h"

namespace kivo::benchmarks {

inline constexpr int burstSize = 5;

/// What is timed over a slow line: the first reply of a launch; two calls of which the second needs
/// the first one's reply; five calls at once to a host that has answered two before; and the same
/// after a silence in which its connections were closed.
enum class Scene { first, both, burst, silence };

inline Scene sceneNamed(std::string_view name) {
    if (name == "first") return Scene::first;
    if (name == "both") return Scene::both;
    if (name == "burst") return Scene::burst;
    if (name == "silence") return Scene::silence;
    giveUp("usage: first|both|burst|silence …");
}

inline bool endsInBurst(Scene scene) { return scene == Scene::burst || scene == Scene::silence; }

inline void awaitSilence(Scene scene) {
    if (scene == Scene::silence) std::this_thread::sleep_for(std::chrono::seconds(1));
}

/// One line of JSON on standard error.
inline void reportMilliseconds(double sinceBegin) {
    std::fprintf(stderr,
                 R"({"ms": %.2f})"
                 "\n",
                 sinceBegin);
}

inline double millisecondsNow() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::milli>(now).count();
}

}  // namespace kivo::benchmarks
