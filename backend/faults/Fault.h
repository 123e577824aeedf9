#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kivo::backend {

/// How a rule is written.
inline constexpr const char* faultForm = "ENDPOINT:KIND[=ARG][:times=N][:p=0.3][:session=S1]";

/// A deliberate failure, see faultForm.
struct Fault {
    std::string endpoint;  ///< A name such as "user/unset", "img", or "*" for every request.
    std::string kind;
    std::string argument = {};
    std::optional<unsigned> times = {};  ///< Absent: always.
    double probability = 1;
    std::string session = {};  ///< Empty: all.
};

/// Parses a rule, whose endpoint may be any unambiguous end of its path. Throws
/// std::invalid_argument, with a message that says what is wrong and shows the syntax; a rule that
/// could never change anything is wrong, too.
Fault parseFault(std::string_view rule);

/// The rule in its written form.
std::string ruleOf(const Fault& fault);

}  // namespace kivo::backend
