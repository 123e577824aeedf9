#pragma once

#include <map>
#include <string>

#include "backend/http/Reply.h"

namespace kivo::backend {

/// The JSON object in every reply.
struct Envelope {
    bool success = true;
    std::string message;
    /// Left out of the JSON if empty.
    std::map<std::string, std::string> data = {};
};

Reply replyWith(int status, const Envelope& envelope);

/// A reply with `success` false and this message.
Reply refusal(int status, const std::string& message);

/// The same with status 401, for a request without a valid token.
Reply unauthorized(const std::string& message);

}  // namespace kivo::backend
