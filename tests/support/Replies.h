#pragma once

#include <chrono>
#include <map>
#include <string>
#include <utility>

#include "backend/service/Envelope.h"

namespace kivo::tests {

using backend::Delivery;
using backend::Reply;

inline Reply okReply(std::map<std::string, std::string> data) {
    return backend::replyWith(200, {.message = "ok", .data = std::move(data)});
}
inline Reply merchantReply(const std::string& merchantToken, const std::string& sessionId) {
    return okReply({{"merchantToken", merchantToken}, {"sessionId", sessionId}});
}
inline Reply userReply(const std::string& userToken) { return okReply({{"userToken", userToken}}); }
inline Reply messageReply(const std::string& message) { return okReply({{"message", message}}); }

inline Reply refusedReply(int status, const std::string& message = "refused") {
    return backend::refusal(status, message);
}
inline Reply redirectReply(int status, const std::string& location) {
    return {.status = status, .headers = {{"Location", location}}};
}

/// These bytes are the whole answer.
inline Reply rawReply(const std::string& bytes) {
    return {.body = bytes, .delivery = Delivery::raw};
}

/// The same reply, brought differently.
inline Reply delayed(std::chrono::milliseconds delay, Reply reply) {
    reply.delay = delay;
    return reply;
}
inline Reply hanging(Reply reply = {}) {
    reply.delivery = Delivery::hang;
    return reply;
}

}  // namespace kivo::tests
