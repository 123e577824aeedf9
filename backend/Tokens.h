#pragma once

#include "backend/Lifetimes.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kivo::backend {

using Clock = std::function<std::chrono::system_clock::time_point()>;

enum class TokenKind { merchant, user };
enum class TokenState { valid, missing, wrong, expired };

struct TokenVerdict {
    TokenState state = TokenState::wrong;
    /// The session that a valid token belongs to.
    std::string sessionId = {};
};

/// Issues and checks the bearer tokens: JSON web tokens signed with HMAC-SHA256 and a key that
/// lives as long as this object. Not for several threads at once.
class Tokens {
public:
    explicit Tokens(const Lifetimes& lifetimes, Clock clock = std::chrono::system_clock::now);

    /// Every token has an id of its own: M1, M2, … for merchants and U1, U2, … for users.
    std::string issue(TokenKind kind, const std::string& sessionId);

    /// A token of the other kind is wrong, like a forged one; an empty one is missing.
    TokenVerdict check(TokenKind kind, std::string_view token) const;

private:
    std::string sign(std::string_view text) const;

    const Lifetimes lifetimes_;
    const Clock clock_;
    const std::string key_;
    std::uint64_t merchants_ = 0;
    std::uint64_t users_ = 0;
};

}  // namespace kivo::backend
