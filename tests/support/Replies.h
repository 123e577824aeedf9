#pragma once

#include "backend/Reply.h"

#include <chrono>
#include <string>

namespace kivo::tests {

using backend::Reply;

/// What the backend says when all is well.
Reply merchantReply(const std::string& merchantToken, const std::string& sessionId);
Reply userReply(const std::string& userToken);
Reply messageReply(const std::string& message);

/// An envelope that reports no success and carries no data.
Reply refusedReply(int status, const std::string& message = "refused");

Reply jsonReply(int status, const std::string& body);
Reply redirectReply(int status, const std::string& location);
Reply rawReply(const std::string& bytes);

/// The same reply, brought differently.
Reply withStatus(int status, Reply reply);
Reply hanging(Reply reply = {});
Reply delayed(std::chrono::milliseconds delay, Reply reply);
Reply cutInHalf(Reply reply);
Reply closedBeforeReply();

}  // namespace kivo::tests
