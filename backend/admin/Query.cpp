#include "backend/admin/Query.h"

#include <stdexcept>
#include <string_view>

#include "backend/base/Number.h"

namespace kivo::backend {

namespace {

/// Removes the text up to the separator from the front.
std::string_view next(std::string_view& rest, char separator) {
    const auto end = rest.find(separator);
    const auto part = rest.substr(0, end);
    rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    return part;
}

}  // namespace

std::optional<std::string> queryText(const Request& request, std::string_view name) {
    std::string_view rest = request.target;
    next(rest, '?');
    while (!rest.empty()) {
        auto value = next(rest, '&');
        if (next(value, '=') == name) return std::string(value);
    }
    return std::nullopt;
}

std::optional<std::uint64_t> queryNumber(const Request& request, std::string_view name) {
    const auto text = queryText(request, name);
    if (!text) return std::nullopt;
    if (const auto number = parseNumber<std::uint64_t>(*text)) return number;
    throw std::invalid_argument(std::string(name) + " takes a whole number, not \"" + *text + "\"");
}

}  // namespace kivo::backend
