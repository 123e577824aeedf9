#pragma once

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>

#include "backend/http/Server.h"
#include "tests/support/Replies.h"

namespace kivo::tests {

using backend::Request;

/// A backend on an ephemeral loopback port that says what a test tells it to and remembers what it
/// was asked. It speaks TLS, plain HTTP and, as the client's proxy, for every host it was made for.
/// Requests are found by the end of their path; of several scripts that fit, the longest counts.
/// A path without a script gets 404.
class ScriptedBackend {
public:
    using Answer = std::function<Reply(const Request&)>;

    /// Valid for localhost, its addresses and the extra hosts. Its trust file is in the folder.
    explicit ScriptedBackend(const std::filesystem::path& folder,
                             const std::vector<std::string>& extraHosts = {})
        : ScriptedBackend(makeTrust(folder, extraHosts)) {}

    /// Another backend, on a port of its own, that the same trust file vouches for.
    std::unique_ptr<ScriptedBackend> sibling() const;

    /// Replies to one path queue up: each is used once, the last one stays. A computed one is
    /// called on the server's thread, without a lock: it must not block.
    void answer(std::string_view pathSuffix, Answer answer);
    void answer(std::string_view pathSuffix, const Reply& reply) {
        answer(pathSuffix, [reply](const Request&) { return reply; });
    }

    /// In order of arrival; the empty suffix gives all.
    std::vector<Request> requests(std::string_view pathSuffix = "") const;

    /// The newest one; throws std::runtime_error when there is none.
    Request last(std::string_view pathSuffix) const;

    /// Waits until that many such requests have come, seen from the start.
    bool awaitRequests(std::string_view pathSuffix, std::size_t count) const;

    /// Sends the replies that hang at this moment.
    void release() { server_.release(); }

    /// Ends every connection and frees the port. What was asked can still be read.
    void stop() { server_.stop(); }

    std::uint16_t port() const { return server_.port(); }
    std::string trustFile() const { return trust_.file; }
    std::string proxyUrl() const { return "http://127.0.0.1:" + std::to_string(port()); }
    std::string plainUrl(std::string_view path = "") const {
        return (proxyUrl() + "/").append(path);
    }
    std::string url(std::string_view path = "") const {
        return ("https://localhost:" + std::to_string(port()) + "/").append(path);
    }

private:
    /// The front is what was said last, and at first nothing.
    using Script = std::deque<Answer>;

    struct Trust {
        backend::Identity identity;
        std::string file;
    };

    static Trust makeTrust(const std::filesystem::path& folder, std::vector<std::string> hosts);
    explicit ScriptedBackend(Trust trust);
    Answer take(const Request& request);
    Script* scriptFor(std::string_view path);
    std::vector<Request> found(std::string_view pathSuffix) const;

    const Trust trust_;
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::vector<Request> requests_;
    std::map<std::string, Script, std::less<>> scripts_;
    backend::Server server_;
};

}  // namespace kivo::tests
