#include "backend/http/Reply.h"

#include <boost/beast/http/status.hpp>

#include <algorithm>
#include <array>
#include <ctime>
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

/// As in "Sun, 06 Nov 1994 08:49:37 GMT".
std::string dateNow() {
    const auto now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
    return text.data();
}

std::string head(const Reply& reply, const Request& request, bool keepAlive) {
    std::string text = statusLine(reply.status);
    for (const auto& header : reply.headers) text += header.name + ": " + header.value + "\r\n";
    const bool framed = has(reply, "Content-Length") || has(reply, "Transfer-Encoding") ||
                        reply.repetitions == Reply::endless || reply.more;
    if (!framed && mayHaveBody(reply.status)) {
        const auto length =
            reply.opening.size() + reply.body.size() * reply.repetitions + reply.closing.size();
        text += "Content-Length: " + std::to_string(length) + "\r\n";
    }
    if (!has(reply, "Date")) text += "Date: " + dateNow() + "\r\n";
    const bool saysItself = has(reply, "Connection");
    if (!keepAlive && !saysItself) text += "Connection: close\r\n";
    if (keepAlive && request.isHttp10 && !saysItself) text += "Connection: keep-alive\r\n";
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
    std::string text = head(reply, request, keepAlive);
    if (reply.delivery == Delivery::resetInHead) return text.substr(0, text.size() / 2);
    if (!hasBody(reply, request)) return text;
    const auto whole = reply.body.size();
    text += reply.opening;
    return text.append(reply.body, 0, reply.delivery == Delivery::cutBody ? whole / 2 : whole);
}

}  // namespace kivo::backend
