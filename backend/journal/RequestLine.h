#pragma once

#include <chrono>
#include <string>

#include "backend/journal/Journal.h"

namespace kivo::backend {

/// One line about one exchange: local time, method, path, status, milliseconds, the short names of
/// the tokens that came and went, the contract's verdict. Bytes that a terminal could take for
/// commands are shown as "?". Secrets, when shown, stand in full behind their short names.
std::string requestLine(const Entry& entry, bool showSecrets = false);

/// "ok", or in plain words what was wrong; empty for what no contract speaks of.
std::string verdictOn(const Entry& entry);

/// The hours of the day on the machine's clock, to the millisecond.
std::string localTime(std::chrono::system_clock::time_point time);

}  // namespace kivo::backend
