#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kivo::backend {

/// One thing that goes wrong on purpose, written ENDPOINT:KIND[=ARG][:times=N][:p=0.3].
struct Fault {
    std::string endpoint;  ///< A path's end such as "user/unset", "img", or "*" for every request.
    std::string kind;
    std::string argument = {};
    std::optional<unsigned> times = {};  ///< Absent: always.
    double probability = 1;
};

/// Reads a rule. Throws std::invalid_argument with a text that says what is wrong and how it is
/// written.
Fault parseFault(std::string_view rule);

/// The rule as it is written.
std::string ruleOf(const Fault& fault);

}  // namespace kivo::backend
