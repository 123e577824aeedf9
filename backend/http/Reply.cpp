#include "backend/http/Reply.h"

#include <boost/beast/http/status.hpp>

#include <algorithm>
#include <string_view>

namespace kivo::backend {

namespace {

bool has(const Reply& reply, std::string_view name) {
    return std::ranges::any_of(reply.headers,
                               [&](const auto& header) { return header.isNamed(name); });
}

bool mayHaveBody(int status) { return status >= 200 && status != 204 && status != 304; }

std::string statusLine(int status) {
    const auto reason =
        boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(status));
    return "HTTP/1.1 " + std::to_string(status) + " " + std::string(reason) + "\r\n";
}

std::string head(const Reply& reply, bool keepAlive) {
    std::string text = statusLine(reply.status);
    for (const auto& header : reply.headers) text += header.name + ": " + header.value + "\r\n";
    const bool framed = has(reply, "Content-Length") || has(reply, "Transfer-Encoding") ||
                        reply.repetitions == Reply::endless || reply.more;
    if (!framed && mayHaveBody(reply.status)) {
        const auto length = reply.body.size() * reply.repetitions;
        text += "Content-Length: " + std::to_string(length) + "\r\n";
    }
    if (!keepAlive && !has(reply, "Connection")) text += "Connection: close\r\n";
    return text + "\r\n";
}

}  // namespace

Reply Reply::json(int status, std::string body) {
    return {.status = status,
            .headers = {{"Content-Type", "application/json"}},
            .body = std::move(body)};
}

bool isReset(Delivery delivery) {
    return delivery == Delivery::resetBeforeReply || delivery == Delivery::resetInHead ||
           delivery == Delivery::resetAfterHead;
}

bool hasBody(const Reply& reply, const Request& request) {
    return request.method != "HEAD" && mayHaveBody(reply.status) &&
           reply.delivery != Delivery::resetAfterHead;
}

std::string wireText(const Reply& reply, const Request& request, bool keepAlive) {
    if (reply.delivery == Delivery::raw) return reply.body;
    std::string text = head(reply, keepAlive);
    if (reply.delivery == Delivery::resetInHead) return text.substr(0, text.size() / 2);
    if (!hasBody(reply, request)) return text;
    const auto whole = reply.body.size();
    return text.append(reply.body, 0, reply.delivery == Delivery::cutBody ? whole / 2 : whole);
}

}  // namespace kivo::backend
