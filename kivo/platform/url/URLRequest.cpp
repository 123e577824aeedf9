#include "kivo/platform/url/URLRequest.h"

#include <strings.h>

#include <algorithm>

#include "kivo/platform/base/CharacterSet.h"

namespace kivo::platform {

namespace {

constexpr CharacterSet inToken = alphanumerics | CharacterSet("!#$%&'*+-.^_`|~");
constexpr CharacterSet inHeaderLine = CharacterSet(std::string_view("\0\r\n", 3)).inverted();
constexpr std::size_t usualFields = 8;

bool sameField(std::string_view one, std::string_view other) {
    return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

/// Finds `field` among `fields`, ignoring case.
auto findField(auto& fields, std::string_view field) {
    return std::ranges::find_if(fields,
                                [&](const auto& entry) { return sameField(entry.first, field); });
}

}  // namespace

bool isHTTPToken(std::string_view text) { return !text.empty() && inToken.containsAll(text); }

void URLRequest::addValue(std::string_view value, std::string_view field) {
    if (!isHTTPToken(field) || !inHeaderLine.containsAll(value)) return;
    HeaderFields& fields = content_.own().headerFields;
    fields.reserve(usualFields);
    const auto present = findField(fields, field);
    if (present != fields.end()) {
        present->second.append(",").append(value);
    } else {
        fields.emplace_back(field, value);
    }
}

std::optional<std::string> URLRequest::value(std::string_view field) const {
    const auto found = findField(headerFields(), field);
    return found != headerFields().end() ? std::optional(found->second) : std::nullopt;
}

}  // namespace kivo::platform
