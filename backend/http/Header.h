#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kivo::backend {

/// One header line of a request or reply, with its spelling kept.
struct Header {
    std::string name;
    std::string value;

    /// Compares without regard to case.
    bool isNamed(std::string_view other) const;
};

/// All values of one header, in order of arrival.
std::vector<std::string> valuesOf(const std::vector<Header>& headers, std::string_view name);

}  // namespace kivo::backend
