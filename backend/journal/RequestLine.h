#pragma once

#include <chrono>
#include <string>

#include "backend/journal/Journal.h"

namespace kivo::backend {

/// One line about one exchange: local time, method, path, status, milliseconds, the short names of
/// the tokens sent and issued, and the contract verdict. Bytes that could control a terminal are
/// shown as "?". Secrets, if shown, follow their short names in full.
std::string requestLine(const Entry& entry, bool showSecrets = false);

/// "ok" or what was wrong; empty where the contract does not apply.
std::string verdictOn(const Entry& entry);

/// The local time of day, to the millisecond.
std::string localTime(std::chrono::system_clock::time_point time);

}  // namespace kivo::backend
