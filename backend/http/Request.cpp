#include "backend/http/Request.h"

namespace kivo::backend {

std::string_view Request::path() const {
    std::string_view path = target;
    if (const auto scheme = path.find("://"); !path.starts_with('/') && scheme != path.npos) {
        const auto start = path.find('/', scheme + 3);
        path = start == path.npos ? "/" : path.substr(start);
    }
    return path.substr(0, path.find_first_of("?#"));
}

std::string Request::header(std::string_view name) const {
    for (const auto& header : headers) {
        if (header.isNamed(name)) return header.value;
    }
    return {};
}

}  // namespace kivo::backend
