#pragma once

#include <chrono>
#include <string>
#include <string_view>

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

/// Local date and time with its offset from UTC, as in 2026-03-01T09:30:00.250+01:00.
std::string isoTime(std::chrono::system_clock::time_point time);

/// The text with "?" for each byte that could control a terminal or is not ASCII.
std::string printable(std::string_view text);

}  // namespace kivo::backend
