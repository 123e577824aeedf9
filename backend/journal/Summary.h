#pragma once

#include <string>

#include "backend/journal/Tally.h"

namespace kivo::backend {

/// The closing lines of a run: requests by endpoint, refreshes, contract violations.
std::string summaryOf(const Totals& totals);

/// Whether the server turned the client away before any handshake.
bool isRejection(const std::string& reason);

/// A line about a failed TLS handshake, with advice where the cause is known.
std::string handshakeLine(const std::string& reason);

}  // namespace kivo::backend
