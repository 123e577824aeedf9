#include "backend/http/Header.h"

#include <boost/beast/core/string.hpp>

namespace kivo::backend {

bool Header::isNamed(std::string_view other) const { return boost::beast::iequals(name, other); }

std::vector<std::string> valuesOf(const std::vector<Header>& headers, std::string_view name) {
    std::vector<std::string> values;
    for (const auto& header : headers) {
        if (header.isNamed(name)) values.push_back(header.value);
    }
    return values;
}

}  // namespace kivo::backend
