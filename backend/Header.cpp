#include "backend/Header.h"

#include <algorithm>

namespace kivo::backend {
namespace {

char lowered(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace

bool Header::isNamed(std::string_view other) const {
    return std::ranges::equal(name, other, {}, lowered, lowered);
}

std::vector<std::string> valuesOf(const std::vector<Header>& headers, std::string_view name) {
    std::vector<std::string> values;
    for (const auto& header : headers) {
        if (header.isNamed(name)) values.push_back(header.value);
    }
    return values;
}

}  // namespace kivo::backend
