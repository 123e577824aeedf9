#pragma once

#include <map>
#include <string>

#include "backend/http/Reply.h"

namespace kivo::backend {

/// The JSON object around everything that the backend says.
struct Envelope {
    bool success = true;
    std::string message;
    /// Left out of the JSON text when empty.
    std::map<std::string, std::string> data = {};
};

Reply replyWith(int status, const Envelope& envelope);

/// A refusal in the backend's own words.
Reply refusal(int status, const std::string& message);

/// One with 401, for want of a good token.
Reply unauthorized(const std::string& message);

}  // namespace kivo::backend
