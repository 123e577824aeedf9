#include "backend/Lifetimes.h"

#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace kivo::backend {
namespace {

[[noreturn]] void reject(std::string_view part) {
    throw std::invalid_argument("\"" + std::string(part) +
                                "\" is no time to live; write it like user=15m,merchant=1h "
                                "(whole numbers of s, m or h)");
}

long secondsIn(char unit) {
    switch (unit) {
        case 's': return 1;
        case 'm': return 60;
        case 'h': return 3600;
        default: return 0;
    }
}

std::chrono::seconds parseDuration(std::string_view text, std::string_view part) {
    if (text.size() < 2) reject(part);
    const auto digits = text.substr(0, text.size() - 1);
    std::uint32_t count = 0;
    const auto [end, error] = std::from_chars(digits.begin(), digits.end(), count);
    const long unit = secondsIn(text.back());
    if (error != std::errc{} || end != digits.end() || unit == 0) reject(part);
    return std::chrono::seconds(unit * count);
}

void apply(Lifetimes& lifetimes, std::string_view part) {
    const auto equals = part.find('=');
    const auto name = part.substr(0, equals);
    if (equals == part.npos || (name != "user" && name != "merchant")) reject(part);
    (name == "user" ? lifetimes.user : lifetimes.merchant) =
        parseDuration(part.substr(equals + 1), part);
}

}  // namespace

Lifetimes parseLifetimes(std::string_view text) {
    Lifetimes lifetimes;
    for (;;) {
        const auto comma = text.find(',');
        apply(lifetimes, text.substr(0, comma));
        if (comma == text.npos) return lifetimes;
        text.remove_prefix(comma + 1);
    }
}

}  // namespace kivo::backend
