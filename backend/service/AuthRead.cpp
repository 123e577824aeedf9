#include "backend/service/AuthRead.h"

#include <algorithm>
#include <string_view>

namespace kivo::backend {

namespace {

std::string tokenIn(std::string_view value) {
    constexpr std::string_view scheme = "Bearer ";
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    return value.starts_with(scheme) ? std::string(value.substr(scheme.size())) : std::string();
}

}  // namespace

std::vector<std::string> bearerTokens(const Request& request) {
    std::vector<std::string> tokens;
    for (const auto& line : request.values("Authorization")) {
        std::string_view rest = line;
        for (;;) {
            const auto comma = rest.find(',');
            tokens.push_back(tokenIn(rest.substr(0, comma)));
            if (comma == rest.npos) break;
            rest.remove_prefix(comma + 1);
        }
    }
    return tokens;
}

}  // namespace kivo::backend
