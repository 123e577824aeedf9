#include "backend/Tokens.h"

#include "backend/Base64Url.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <nlohmann/json.hpp>

#include <array>
#include <stdexcept>
#include <utility>

namespace kivo::backend {
namespace {

using nlohmann::json;
constexpr std::size_t keySize = 32;

std::string randomKey() {
    std::string key(keySize, '\0');
    auto* bytes = reinterpret_cast<unsigned char*>(key.data());
    if (RAND_bytes(bytes, keySize) != 1) throw std::runtime_error("OpenSSL has no random bytes");
    return key;
}

/// The only header there is: a token that names any other algorithm, "none" included, is not ours.
const std::string& header() {
    static const std::string text = base64UrlEncode(R"({"alg":"HS256","typ":"JWT"})");
    return text;
}

const char* nameOf(TokenKind kind) { return kind == TokenKind::merchant ? "merchant" : "user"; }

double secondsSinceEpoch(std::chrono::system_clock::time_point time) {
    const auto span = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    return static_cast<double>(span.count()) / 1000;
}

bool sameText(std::string_view one, std::string_view other) {
    return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace

Tokens::Tokens(const Lifetimes& lifetimes, Clock clock)
    : lifetimes_(lifetimes), clock_(std::move(clock)), key_(randomKey()) {}

std::string Tokens::issue(TokenKind kind, const std::string& sessionId) {
    const bool merchant = kind == TokenKind::merchant;
    const auto number = std::to_string(merchant ? ++merchants_ : ++users_);
    const auto now = clock_();
    const json claims{
        {"kind", nameOf(kind)},
        {"sid", sessionId},
        {"jti", (merchant ? "M" : "U") + number},
        {"iat", secondsSinceEpoch(now)},
        {"exp", secondsSinceEpoch(now + (merchant ? lifetimes_.merchant : lifetimes_.user))}};
    const std::string text = header() + "." + base64UrlEncode(claims.dump());
    return text + "." + sign(text);
}

TokenVerdict Tokens::check(TokenKind kind, std::string_view token) const {
    if (token.empty()) return {.state = TokenState::missing};
    const auto dot = token.rfind('.');
    if (dot == token.npos || !sameText(token.substr(dot + 1), sign(token.substr(0, dot))))
        return {};
    // Whatever bears our signature is what issue() wrote.
    const auto claims =
        json::parse(base64UrlDecode(token.substr(0, dot).substr(header().size() + 1)));
    if (claims.at("kind") != nameOf(kind)) return {};
    if (claims.at("exp").get<double>() <= secondsSinceEpoch(clock_())) {
        return {.state = TokenState::expired};
    }
    return {.state = TokenState::valid, .sessionId = claims.at("sid")};
}

std::string Tokens::sign(std::string_view text) const {
    std::array<char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(),
         reinterpret_cast<unsigned char*>(digest.data()), &size);
    return base64UrlEncode({digest.data(), size});
}

}  // namespace kivo::backend
