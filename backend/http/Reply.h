#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "backend/http/Header.h"
#include "backend/http/Request.h"

namespace kivo::backend {

/// How a reply is brought to the client.
enum class Conduct {
    normal,
    hang,  ///< Holds the reply until Server::release(), the client's leaving or the server's end.
    closeBeforeReply,  ///< Closes the connection instead of answering.
    resetBeforeReply,  ///< Resets the connection instead of answering.
    resetInHead,       ///< Sends half of the status line and headers, then resets.
    resetAfterHead,    ///< Sends the status line and headers, then resets.
    cutBody,           ///< Announces the whole body, sends the first half and closes.
    raw,               ///< Sends the body alone, byte for byte, as the whole answer and closes.
};

bool isReset(Conduct conduct);

/// What a request is answered with.
struct Reply {
    int status = 200;
    std::vector<Header> headers = {};
    std::string body = {};
    Conduct conduct = Conduct::normal;
    /// Waited before anything else that the conduct says.
    std::chrono::milliseconds delay{0};
    /// Waited before every single byte; 0 sends all at once.
    std::chrono::milliseconds drip{0};
    /// How often the body goes out, one after the other. An endless one has no length.
    std::uint64_t repetitions = 1;
    /// The rule of the fault that shaped it, if one did. For the record: nothing of it is sent.
    std::string fault = {};
    static constexpr std::uint64_t endless = std::numeric_limits<std::uint64_t>::max();

    static Reply json(int status, std::string body);
};

/// Called on the server's own thread for one request at a time: it must not block.
using Handler = std::function<Reply(const Request&)>;

/// The bytes that go out, with the body once. Content-Length is added unless the reply's own
/// headers frame the body or it is endless.
std::string wireText(const Reply& reply, const Request& request, bool keepAlive);

/// Whether the client is to be sent a body at all.
bool hasBody(const Reply& reply, const Request& request);

}  // namespace kivo::backend
