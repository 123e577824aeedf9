#pragma once

#include <string>

#include "backend/journal/Tally.h"

namespace kivo::backend {

/// A few lines for the end of a run: requests by endpoint, refreshes, broken contracts.
std::string summaryOf(const Totals& totals);

/// A line for a TLS handshake that failed, with what to do about it where that is known.
std::string handshakeLine(const std::string& reason);

}  // namespace kivo::backend
