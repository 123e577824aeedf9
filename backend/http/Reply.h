#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "backend/http/Header.h"
#include "backend/http/Request.h"
#include "backend/http/Violation.h"

namespace kivo::backend {

/// How a reply is delivered to the client.
enum class Delivery {
    normal,
    hang,              ///< Holds the reply until Server::release(), or until either side closes.
    closeBeforeReply,  ///< Closes the connection instead of answering.
    resetBeforeReply,  ///< Resets the connection instead of answering.
    resetInHead,       ///< Sends half of the status line and headers, then resets.
    resetAfterHead,    ///< Sends the status line and headers, then resets.
    cutBody,           ///< Announces the whole body, sends half of it and closes.
    raw,               ///< Sends the body alone, without status line and headers, and closes.
};

bool isReset(Delivery delivery);

/// The reply to a request, and how to deliver it.
struct Reply {
    int status = 200;
    std::vector<Header> headers = {};
    std::string body = {};
    Delivery delivery = Delivery::normal;
    /// Delay before anything is sent or closed.
    std::chrono::milliseconds delay{0};
    /// Delay before each byte; 0 sends all at once.
    std::chrono::milliseconds drip{0};
    /// How many times the body is sent in a row. An endless body has no length.
    std::uint64_t repetitions = 1;
    /// Sent once before and once after all repetitions of the body.
    std::string opening = {};
    std::string closing = {};
    /// Asked for the text that follows the body, again and again until either side closes, on the
    /// server's thread. Empty text means nothing for now: the next call follows Server::wake(), or
    /// half a second. Only for connections without TLS.
    std::function<std::string()> more = {};
    /// The rule of the fault that caused this reply, if any. For the journal; never sent.
    std::string fault = {};
    /// How the request broke the contract. For the journal; never sent.
    Violations violations = {};
    static constexpr std::uint64_t endless = std::numeric_limits<std::uint64_t>::max();

    static Reply json(int status, std::string body);
};

/// Answers one request at a time on the server's thread; must not block.
using Handler = std::function<Reply(const Request&)>;

/// The bytes to send, up to the first repetition of the body. Content-Length is added unless the
/// reply's own headers frame the body or the body is endless.
std::string wireText(const Reply& reply, const Request& request, bool keepAlive);

/// Whether a body is sent at all.
bool hasBody(const Reply& reply, const Request& request);

}  // namespace kivo::backend
