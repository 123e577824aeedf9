#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kivo::backend {

/// A deliberate failure, written ENDPOINT:KIND[=ARG][:times=N][:p=0.3].
struct Fault {
    std::string
        endpoint;  ///< The end of a path such as "user/unset", "img", or "*" for every request.
    std::string kind;
    std::string argument = {};
    std::optional<unsigned> times = {};  ///< Absent: always.
    double probability = 1;
};

/// Parses a rule. Throws std::invalid_argument with a message that says what is wrong and shows the
/// syntax.
Fault parseFault(std::string_view rule);

/// The rule in its written form.
std::string ruleOf(const Fault& fault);

}  // namespace kivo::backend
