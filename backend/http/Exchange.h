#pragma once

#include <chrono>

#include "backend/http/Reply.h"
#include "backend/http/Request.h"

namespace kivo::backend {

/// One request and its reply.
struct Exchange {
    Request request = {};
    Reply reply = {};
    std::chrono::steady_clock::duration duration{};
    /// False when the connection closed before the whole reply was sent.
    bool delivered = false;
};

}  // namespace kivo::backend
