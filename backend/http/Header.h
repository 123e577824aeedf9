#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kivo::backend {

/// One header line of a request or a reply, spelled as it was sent.
struct Header {
    std::string name;
    std::string value;

    /// Header names do not distinguish letter case.
    bool isNamed(std::string_view other) const;
};

/// Every value of one name, in the order of arrival.
std::vector<std::string> valuesOf(const std::vector<Header>& headers, std::string_view name);

}  // namespace kivo::backend
