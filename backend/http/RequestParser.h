#pragma once

#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include "backend/http/Server.h"

namespace kivo::backend {

/// Reads one request and buffers no more than the limits allow.
class RequestParser : public boost::beast::http::request_parser<boost::beast::http::string_body> {
public:
    explicit RequestParser(const ServerLimits& limits);
};

/// Whether the client waits for "100 Continue" before it sends the body. Only after the header.
bool expectsContinue(RequestParser& parser);

/// The request, or what had arrived before an error. Moves the body out of the parser.
Request requestFrom(RequestParser& parser);

/// Whether the bytes are at fault rather than the connection.
bool isProtocolError(const boost::system::error_code& error);

/// The status to answer such an error with.
int statusFor(const boost::system::error_code& error);

}  // namespace kivo::backend
