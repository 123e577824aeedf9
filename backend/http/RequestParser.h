#pragma once

#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include "backend/http/Server.h"

namespace kivo::backend {

/// Reads one request off the wire and holds no more of it than the limits allow.
class RequestParser : public boost::beast::http::request_parser<boost::beast::http::string_body> {
public:
    explicit RequestParser(const ServerLimits& limits);
};

/// What was read, or as much as had come before an error; the body is moved out of the parser.
Request requestFrom(RequestParser& parser);

/// Whether the bytes are to blame, not the connection.
bool isProtocolError(const boost::system::error_code& error);

/// The status that tells the client of such an error.
int statusFor(const boost::system::error_code& error);

}  // namespace kivo::backend
