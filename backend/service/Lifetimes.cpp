#include "backend/service/Lifetimes.h"

#include <stdexcept>
#include <string>

#include "backend/base/Duration.h"

namespace kivo::backend {

namespace {

[[noreturn]] void reject(std::string_view part) {
    throw std::invalid_argument("\"" + std::string(part) +
                                "\" is not a time to live; write it like user=15m,merchant=1h "
                                "(whole numbers of s, m or h)");
}

std::chrono::seconds parseSeconds(std::string_view text, std::string_view part) {
    const auto duration = parseDuration(text);
    const auto seconds =
        std::chrono::floor<std::chrono::seconds>(duration.value_or(std::chrono::milliseconds(0)));
    if (!duration || seconds != *duration) reject(part);
    return seconds;
}

void apply(Lifetimes& lifetimes, std::string_view part) {
    const auto equals = part.find('=');
    const auto name = part.substr(0, equals);
    if (equals == part.npos || (name != "user" && name != "merchant")) reject(part);
    (name == "user" ? lifetimes.user : lifetimes.merchant) =
        parseSeconds(part.substr(equals + 1), part);
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
