#pragma once

#include "backend/Authority.h"
#include "backend/Reply.h"
#include "backend/Request.h"
#include "backend/Server.h"
#include "tests/support/Replies.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kivo::tests {

using backend::Conduct;
using backend::Reply;
using backend::Request;

/// A backend on an ephemeral loopback port that says what a test tells it to and remembers what it
/// was asked. It speaks TLS, plain HTTP and, as the client's proxy, for every host it was made for.
/// Requests are found by the end of their path; of several scripts that fit, the longest counts.
/// What nobody scripted is answered with 404.
class ScriptedBackend {
public:
    using Answer = std::function<Reply(const Request&)>;

    /// Valid for localhost, its addresses and the extra hosts. Writes its trust file into the
    /// folder.
    explicit ScriptedBackend(const std::filesystem::path& folder,
                             const std::vector<std::string>& extraHosts = {});
    ~ScriptedBackend();

    /// Another backend, on a port of its own, that the same trust file vouches for.
    std::unique_ptr<ScriptedBackend> sibling() const;

    /// Replies to one path queue up: each is used once, the last one stays.
    void answer(std::string_view pathSuffix, Reply reply);

    /// The answer is computed on the server's thread, without a lock: it must not block.
    void answer(std::string_view pathSuffix, Answer answer);

    /// In order of arrival; the empty suffix gives all.
    std::vector<Request> requests(std::string_view pathSuffix = "") const;

    /// The newest one; throws std::runtime_error when there is none.
    Request last(std::string_view pathSuffix) const;

    /// Waits until that many such requests have come, seen from the start; false when patience ends
    /// first.
    bool awaitRequests(std::string_view pathSuffix, std::size_t count,
                       std::chrono::milliseconds patience) const;

    /// Sends the replies that hang at this moment.
    void release();

    /// Ends every connection and frees the port. What was asked can still be read.
    void stop();

    std::uint16_t port() const;
    std::string url(std::string_view path = "") const;       // "https://localhost:PORT/" + path
    std::string plainUrl(std::string_view path = "") const;  // "http://127.0.0.1:PORT/" + path
    std::string proxyUrl() const;                            // "http://127.0.0.1:PORT"
    std::string trustFile() const;

private:
    struct Trust;

    struct Line {
        Answer say;
        bool used = false;
    };

    using Script = std::deque<Line>;

    explicit ScriptedBackend(std::shared_ptr<const Trust> trust);
    Reply reply(const Request& request);
    Answer take(const Request& request);
    Script* scriptFor(std::string_view path);
    std::vector<Request> found(std::string_view pathSuffix) const;

    const std::shared_ptr<const Trust> trust_;
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::vector<Request> requests_;
    std::map<std::string, Script, std::less<>> scripts_;
    backend::Server server_;
};

}  // namespace kivo::tests
