#pragma once

#include <chrono>
#include <string>

#include "backend/journal/Tally.h"

namespace kivo::backend {

/// Why no request arrived, most likely, and what to do about it: one line for the user.
std::string likelyCause(const Totals& totals, int exitStatus,
                        std::chrono::steady_clock::duration lifetime);

}  // namespace kivo::backend
