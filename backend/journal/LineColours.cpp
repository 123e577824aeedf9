#include "backend/journal/LineColours.h"

#include <string_view>

#include "backend/base/Terminal.h"

namespace kivo::backend {

namespace {

constexpr std::string_view grey = "\x1b[90m";
constexpr std::string_view red = "\x1b[31m";
constexpr std::string_view green = "\x1b[32m";
constexpr std::string_view yellow = "\x1b[33m";
constexpr std::string_view plain = "\x1b[0m";
constexpr std::string_view separator = "  ";
constexpr std::size_t timeField = 0;
constexpr std::size_t statusField = 2;

std::string_view colourOfStatus(std::string_view status) {
    if (status.starts_with('2')) return green;
    return status.starts_with('3') || status.starts_with('4') ? yellow : red;
}

/// Empty for a field without a colour.
std::string_view colourOf(std::string_view field, std::size_t index) {
    if (index == timeField) return grey;
    if (index == statusField) return colourOfStatus(field);
    if (field.starts_with("BROKEN: ")) return red;
    return field.starts_with("fault ") || field == "(not delivered)" ? yellow : "";
}

std::string painted(std::string_view text, std::string_view colour) {
    if (colour.empty()) return std::string(text);
    return std::string(colour).append(text).append(plain);
}

}  // namespace

std::string coloured(const std::string& line) {
    std::string_view rest(line);
    const std::string_view end = rest.ends_with('\n') ? "\n" : "";
    rest.remove_suffix(end.size());
    std::string text;
    for (std::size_t index = 0; !rest.empty(); ++index) {
        const auto next = rest.find(separator);
        const auto field = rest.substr(0, next);
        text += (index == 0 ? "" : std::string(separator)) + painted(field, colourOf(field, index));
        rest.remove_prefix(next == rest.npos ? rest.size() : next + separator.size());
    }
    return text.append(end);
}

std::string forOutput(const std::string& line) {
    static const bool colours = usesColours(Stream::output);
    return colours ? coloured(line) : line;
}

}  // namespace kivo::backend
