#include "kivo/platform/http/HTTPRedirect.h"

#include <utility>

namespace kivo::platform {

namespace {

bool redirects(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool becomesGet(const URLRequest& request, int status) {
    if (status == 303) return request.httpMethod() != "HEAD";
    return (status == 301 || status == 302) && request.httpMethod() == "POST";
}

bool isBareGet(const URLRequest& request) {
    return request.httpMethod() == "GET" && !request.httpBody() && request.headerFields().empty();
}

}  // namespace

std::optional<URLRequest> redirectedRequest(const URLRequest& request, int status,
                                            std::string_view location) {
    if (!redirects(status)) return std::nullopt;
    auto target = URL::parse(location);
    if (!target) return std::nullopt;

    URLRequest next = request;
    if (becomesGet(request, status)) {
        next.setHTTPMethod("GET");
        next.setHTTPBody(std::nullopt);
    }
    if (!request.url().hasSameOrigin(*target) && !isBareGet(next)) return std::nullopt;
    next.setURL(*std::move(target));
    return next;
}

}  // namespace kivo::platform
