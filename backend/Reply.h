#pragma once

#include "backend/Header.h"
#include "backend/Request.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kivo::backend {

/// How a reply is brought to the client.
enum class Conduct {
    normal,
    hang,  ///< Holds the reply until Server::release(), the client's leaving or the server's end.
    closeBeforeReply,  ///< Closes the connection instead of answering.
    cutBody,           ///< Announces the whole body, sends the first half and closes.
    raw,               ///< Sends the body alone, byte for byte, as the whole answer and closes.
};

/// What a request is answered with.
struct Reply {
    int status = 200;
    std::vector<Header> headers = {};
    std::string body = {};
    Conduct conduct = Conduct::normal;
    /// Waited before anything else that the conduct says.
    std::chrono::milliseconds delay{0};

    static Reply json(int status, std::string body);
};

/// Called on the server's own thread for one request at a time: it must not block.
using Handler = std::function<Reply(const Request&)>;

/// The bytes that go out. Content-Length is added unless the reply's own headers frame the body.
std::string wireText(const Reply& reply, const Request& request, bool keepAlive);

}  // namespace kivo::backend
