#include "backend/admin/Query.h"

namespace kivo::backend {

std::string queryValue(const Request& request, std::string_view name) {
    const std::string_view target = request.target;
    const auto start = target.find("?" + std::string(name) + "=");
    return start == target.npos ? "" : std::string(target.substr(start + name.size() + 2));
}

}  // namespace kivo::backend
