#pragma once

#include "backend/Lifetimes.h"
#include "backend/Reply.h"
#include "backend/Request.h"
#include "backend/Tokens.h"

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace kivo::backend {

/// What one SDK authentication opened, and what came to be known under it since.
struct Session {
    std::string id;
    std::string apiKey;
    std::map<std::string, std::string> user = {};
    std::string deviceToken = {};
    std::string permission = {};
};

/// The backend's endpoints, as plain logic from request to reply, and the sessions they work on. Of
/// several bearer values joined by commas the last counts. Any thread may call it.
class Service {
public:
    explicit Service(const Lifetimes& lifetimes = {}, Clock clock = std::chrono::system_clock::now);

    Reply answer(const Request& request);

    /// The newest sessions, oldest first.
    std::vector<Session> sessions() const;

private:
    using Fields = std::map<std::string, std::string>;
    struct Endpoint;
    static const std::vector<Endpoint>& endpoints();

    Reply serve(const Endpoint& endpoint, const Request& request);
    Reply authenticateSdk(const Fields& fields, const std::string& sessionId);
    Reply authenticateUser(const Fields& fields, const std::string& sessionId);
    Reply updateDeviceToken(const Fields& fields, const std::string& sessionId);
    Reply updateConsent(const Fields& fields, const std::string& sessionId);
    Reply unsetUser(const Fields& fields, const std::string& sessionId);
    Session* find(const std::string& sessionId);

    mutable std::mutex mutex_;
    Tokens tokens_;
    std::deque<Session> sessions_;
    std::uint64_t opened_ = 0;
};

}  // namespace kivo::backend
