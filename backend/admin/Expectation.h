#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/journal/Journal.h"

namespace kivo::backend {

/// A request that is hoped for, as in: user/update-device-token deviceToken=X status=200
struct Expectation {
    std::string endpoint;
    /// Texts of the request's JSON body.
    std::map<std::string, std::string> fields = {};
    /// Of the reply; absent, any will do.
    std::optional<int> status = {};
};

/// Reads the endpoint and its conditions. A single word is taken apart at its spaces; of several,
/// each is one condition. Throws std::invalid_argument with a text that says what to write.
Expectation parseExpectation(std::vector<std::string> words);

bool meets(const Entry& entry, const Expectation& expectation);

/// Whether the request was at least for that endpoint.
bool isForEndpoint(const Entry& entry, const Expectation& expectation);

}  // namespace kivo::backend
