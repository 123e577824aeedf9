#include "backend/service/Tokens.h"

#include <nlohmann/json.hpp>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <random>
#include <stdexcept>
#include <utility>

#include "backend/base/Number.h"
#include "backend/service/Base64Url.h"

namespace kivo::backend {

namespace {

using nlohmann::json;
constexpr std::size_t keySize = 32;
constexpr std::size_t expiryLimit = 65536;

std::string randomKey() {
    std::string key(keySize, '\0');
    auto* bytes = reinterpret_cast<unsigned char*>(key.data());
    if (RAND_bytes(bytes, keySize) != 1)
        throw std::runtime_error("OpenSSL could not make random bytes");
    return key;
}

/// Not secret: the seed determines the key.
std::string keyFrom(std::uint64_t seed) {
    std::mt19937_64 generator(seed);
    std::string key(keySize, '\0');
    for (auto& byte : key) byte = static_cast<char>(generator() & 0xFF);
    return key;
}

/// The only accepted header: a token with any other algorithm, "none" included, is not ours.
const std::string& header() {
    static const std::string text = base64UrlEncode(R"({"alg":"HS256","typ":"JWT"})") + ".";
    return text;
}

char initialOf(TokenKind kind) { return kind == TokenKind::merchant ? 'M' : 'U'; }

double secondsSinceEpoch(std::chrono::system_clock::time_point time) {
    const auto span = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    return static_cast<double>(span.count()) / 1000;
}

bool sameText(std::string_view one, std::string_view other) {
    return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

std::string textIn(const json& object, const char* name) {
    const auto member = object.find(name);
    return member != object.end() && member->is_string() ? member->get<std::string>() : "";
}

}  // namespace

const char* nameOf(TokenKind kind) { return kind == TokenKind::merchant ? "merchant" : "user"; }

std::uint64_t numberIn(std::string_view name) {
    return name.empty() ? 0 : parseNumber<std::uint64_t>(name.substr(1)).value_or(0);
}

std::optional<TokenClaims> readClaims(std::string_view token) {
    const auto dot = token.rfind('.');
    if (!token.starts_with(header()) || dot < header().size()) return std::nullopt;
    const auto payload = token.substr(header().size(), dot - header().size());
    const auto json = json::parse(base64UrlDecode(payload), nullptr, false);
    if (!json.is_object()) return std::nullopt;
    const auto kind = textIn(json, "kind");
    if (kind != "merchant" && kind != "user") return std::nullopt;
    return TokenClaims{.kind = kind == "merchant" ? TokenKind::merchant : TokenKind::user,
                       .name = textIn(json, "jti"),
                       .sessionId = textIn(json, "sid"),
                       .hasTimes = json.contains("iat")};
}

Tokens::Tokens(const Lifetimes& lifetimes, Clock clock, std::optional<std::uint64_t> seed)
    : lifetimes_(lifetimes),
      clock_(std::move(clock)),
      includesTimes_(!seed),
      key_(seed ? keyFrom(*seed) : randomKey()) {}

std::string Tokens::issue(TokenKind kind, const std::string& sessionId) {
    const auto now = clock_();
    const auto end = now + (kind == TokenKind::merchant ? lifetimes_.merchant : lifetimes_.user);
    auto& expiries = expiriesOf(kind);
    expiries.newest.push_back(end);
    if (expiries.newest.size() > expiryLimit) expiries.newest.pop_front();
    const auto name = initialOf(kind) + std::to_string(++expiries.issued);
    json claims{{"kind", nameOf(kind)}, {"sid", sessionId}, {"jti", name}};
    if (includesTimes_) {
        claims["iat"] = secondsSinceEpoch(now);
        claims["exp"] = secondsSinceEpoch(end);
    }
    const std::string text = header() + base64UrlEncode(claims.dump());
    return text + "." + sign(text);
}

TokenVerdict Tokens::check(TokenKind kind, std::string_view token) const {
    if (token.empty()) return {.state = TokenState::missing};
    if (!isSigned(token)) return {};
    const auto claims = readClaims(token);
    if (!claims || claims->kind != kind) return {};
    return {.state = stateOf(*claims), .sessionId = claims->sessionId};
}

std::optional<TokenClaims> Tokens::issuedClaims(std::string_view token) const {
    if (!isSigned(token)) return std::nullopt;
    auto claims = readClaims(token);
    if (claims && numberIn(claims->name) > expiriesOf(claims->kind).issued) return std::nullopt;
    return claims;
}

bool Tokens::isSigned(std::string_view token) const {
    const auto dot = token.rfind('.');
    return dot != token.npos && sameText(token.substr(dot + 1), sign(token.substr(0, dot)));
}

/// A number that has not been issued yet belongs to an earlier run with the same seed.
TokenState Tokens::stateOf(const TokenClaims& claims) const {
    const auto& expiries = expiriesOf(claims.kind);
    const auto number = numberIn(claims.name);
    if (number == 0 || number > expiries.issued) return TokenState::invalid;
    const auto age = expiries.issued - number;
    if (age >= expiries.newest.size()) return TokenState::expired;
    const auto end = expiries.newest.rbegin()[static_cast<std::ptrdiff_t>(age)];
    return end <= clock_() ? TokenState::expired : TokenState::valid;
}

void Tokens::expire(TokenKind kind) { expiriesOf(kind).newest.clear(); }

std::string Tokens::sign(std::string_view text) const {
    std::array<char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(),
         reinterpret_cast<unsigned char*>(digest.data()), &size);
    return base64UrlEncode({digest.data(), size});
}

}  // namespace kivo::backend
