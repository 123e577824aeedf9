#pragma once

#include <chrono>

namespace kivo::tests {

/// How long a test waits for what must happen. Long, since it is only ever used up by a fault.
inline constexpr std::chrono::seconds patience{20};

}  // namespace kivo::tests
