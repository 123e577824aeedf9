#include "tests/support/Replies.h"

#include "backend/Envelope.h"

namespace kivo::tests {

using backend::Conduct;
using backend::replyWith;

Reply merchantReply(const std::string& merchantToken, const std::string& sessionId) {
    return replyWith(200, {.message = "ok",
                           .data = {{"merchantToken", merchantToken}, {"sessionId", sessionId}}});
}

Reply userReply(const std::string& userToken) {
    return replyWith(200, {.message = "ok", .data = {{"userToken", userToken}}});
}

Reply messageReply(const std::string& message) {
    return replyWith(200, {.message = "ok", .data = {{"message", message}}});
}

Reply refusedReply(int status, const std::string& message) {
    return backend::refusal(status, message);
}

Reply jsonReply(int status, const std::string& body) { return Reply::json(status, body); }

Reply redirectReply(int status, const std::string& location) {
    return {.status = status, .headers = {{"Location", location}}};
}

Reply rawReply(const std::string& bytes) { return {.body = bytes, .conduct = Conduct::raw}; }

Reply withStatus(int status, Reply reply) {
    reply.status = status;
    return reply;
}

Reply hanging(Reply reply) {
    reply.conduct = Conduct::hang;
    return reply;
}

Reply delayed(std::chrono::milliseconds delay, Reply reply) {
    reply.delay = delay;
    return reply;
}

Reply cutInHalf(Reply reply) {
    reply.conduct = Conduct::cutBody;
    return reply;
}

Reply closedBeforeReply() { return {.conduct = Conduct::closeBeforeReply}; }

}  // namespace kivo::tests
