#include "kivo/platform/URLRequest.h"

#include <strings.h>

#include <algorithm>

namespace kivo::platform {

namespace {

constexpr bool isTokenCharacter(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
}

bool staysInItsLine(std::string_view value) {
    return std::ranges::none_of(value, [](char c) { return c == '\0' || c == '\r' || c == '\n'; });
}

bool sameField(std::string_view one, std::string_view other) {
    return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace

bool isHTTPToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

void URLRequest::addValue(std::string_view value, std::string_view field) {
    if (!isHTTPToken(field) || !staysInItsLine(value)) return;
    if (std::string* present = find(field)) {
        present->append(",").append(value);
    } else {
        headerFields_.emplace_back(field, value);
    }
}

std::optional<std::string> URLRequest::value(std::string_view field) const {
    for (const auto& [name, value] : headerFields_)
        if (sameField(name, field)) return value;
    return std::nullopt;
}

std::string* URLRequest::find(std::string_view field) {
    for (auto& [name, value] : headerFields_)
        if (sameField(name, field)) return &value;
    return nullptr;
}

}  // namespace kivo::platform
