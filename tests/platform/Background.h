#pragma once

#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <semaphore>
#include <thread>
#include <vector>

#include "kivo/platform/TaskPool.h"
#include "tests/support/Patience.h"

namespace kivo::tests {

using Signal = std::binary_semaphore;

inline platform::TaskPool& pool() { return platform::TaskPool::shared(); }

/// Waits until nothing in the background is unfinished.
inline void settle() { EXPECT_TRUE(pool().waitUntilIdle(patience)); }

/// Waits until a barrier submitted now has run: whatever was queued before it has then begun.
inline void passABarrier() {
    Signal passed{0};
    pool().submitBarrier([&] { passed.release(); });
    passed.acquire();
}

/// Waits until each of the pool's two threads has left the job it was at.
inline void passBothThreads() {
    const auto meeting = std::make_shared<std::latch>(3);
    for (int job = 0; job < 2; ++job) pool().submit([meeting] { meeting->arrive_and_wait(); });
    meeting->arrive_and_wait();
}

/// Runs `body(number)` on that many threads at once and waits for all.
template <typename Body>
void onThreads(int count, const Body& body) {
    std::vector<std::jthread> threads;
    for (int number = 0; number < count; ++number) threads.emplace_back(body, number);
}

}  // namespace kivo::tests
