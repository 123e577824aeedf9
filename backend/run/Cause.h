#pragma once

#include <atomic>
#include <chrono>
#include <string>

namespace kivo::backend {

/// What was seen of a program beside its requests.
struct Traffic {
    std::atomic<unsigned> forwarded = 0;
    std::atomic<unsigned> failedHandshakes = 0;
};

/// Why no request arrived, most likely, and what to do about it: one line for the user.
std::string likelyCause(const Traffic& traffic, int exitStatus,
                        std::chrono::steady_clock::duration lifetime);

}  // namespace kivo::backend
