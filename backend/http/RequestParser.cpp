#include "backend/http/RequestParser.h"

#include <boost/beast/http/error.hpp>

#include <utility>

namespace kivo::backend {

namespace http = boost::beast::http;

RequestParser::RequestParser(const ServerLimits& limits) {
    header_limit(static_cast<std::uint32_t>(limits.headerBytes));
    body_limit(limits.bodyBytes);
}

bool expectsContinue(RequestParser& parser) {
    const auto& head = parser.get();
    return !parser.is_done() && head.version() == 11 &&
           boost::beast::iequals(head[http::field::expect], "100-continue");
}

Request requestFrom(RequestParser& parser) {
    auto& message = parser.get();
    Request request{.method = message.method_string(), .target = message.target()};
    request.isHttp10 = message.version() == 10;
    for (const auto& field : message) {
        request.headers.push_back({.name = field.name_string(), .value = field.value()});
    }
    request.body = std::move(message.body());
    request.arrival = std::chrono::system_clock::now();
    return request;
}

bool isProtocolError(const boost::system::error_code& error) {
    return error.category() == http::make_error_code(http::error::bad_method).category() &&
           error != http::error::end_of_stream && error != http::error::partial_message;
}

int statusFor(const boost::system::error_code& error) {
    if (error == http::error::body_limit) return 413;
    if (error == http::error::header_limit || error == http::error::buffer_overflow) return 431;
    return 400;
}

}  // namespace kivo::backend
