#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/journal/Journal.h"

namespace kivo::backend {

/// A request to wait for, as in: user/update-device-token deviceToken=X status=200
struct Expectation {
    std::string endpoint;
    /// String members of the request's JSON body.
    std::map<std::string, std::string> fields = {};
    /// The reply's status; absent: any status.
    std::optional<int> status = {};
};

/// Parses an endpoint and its conditions. A single word is split at spaces; of several words, each
/// is one condition. Throws std::invalid_argument with a message that shows the syntax.
Expectation parseExpectation(std::vector<std::string> words);

bool meets(const Entry& entry, const Expectation& expectation);

/// Whether the request was for the expected endpoint, whatever its conditions.
bool isForEndpoint(const Entry& entry, const Expectation& expectation);

}  // namespace kivo::backend
