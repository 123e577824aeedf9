#include "backend/Envelope.h"

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

}  // namespace kivo::backend
