#include "backend/service/Envelope.h"

#include <nlohmann/json.hpp>

namespace kivo::backend {

Reply replyWith(int status, const Envelope& envelope) {
    nlohmann::json json{{"success", envelope.success}, {"message", envelope.message}};
    if (!envelope.data.empty()) json["data"] = envelope.data;
    return Reply::json(status, json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

Reply refusal(int status, const std::string& message) {
    return replyWith(status, {.success = false, .message = message});
}

Reply unauthorized(const std::string& message) {
    auto reply = refusal(401, message);
    reply.headers.push_back({.name = "WWW-Authenticate", .value = "Bearer"});
    return reply;
}

}  // namespace kivo::backend
