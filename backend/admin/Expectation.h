#pragma once

#include <map>
#include <optional>
#include <string>
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

/// The words of each expectation, which the word "then" separates. An expectation that is one word
/// is split at spaces outside of quotes, so that it may be written 'user/unset status=200'. Throws
/// std::invalid_argument, with a message for the user, if one is empty or a quote has no end.
std::vector<std::vector<std::string>> splitExpectations(const std::vector<std::string>& words);

/// Parses an endpoint and its conditions, a word each. Throws std::invalid_argument with a message
/// that shows the syntax.
Expectation parseExpectation(const std::vector<std::string>& words);

bool meets(const Entry& entry, const Expectation& expectation);

/// Whether the request was for the expected endpoint, whatever its conditions.
bool isForEndpoint(const Entry& entry, const Expectation& expectation);

/// How a request to the expected endpoint differs, a phrase for each condition that does not hold.
std::vector<std::string> differences(const Entry& entry, const Expectation& expectation,
                                     bool showSecrets);

}  // namespace kivo::backend
