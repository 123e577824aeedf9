#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "backend/http/Header.h"

namespace kivo::backend {

/// One request as it arrived. Repeated headers are all kept.
struct Request {
    std::string method = {};
    std::string target = {};
    std::vector<Header> headers = {};
    std::string body = {};
    /// The "host:port" of the CONNECT that came first, if the client uses this server as its proxy;
    /// otherwise the Host header.
    std::string authority = {};
    /// The number of the server's connection, from 1: requests with the same number shared one
    /// kept-alive connection.
    std::uint64_t connection = 0;
    /// HTTP/1.0, whose connections close unless both sides ask for the opposite.
    bool isHttp10 = false;
    std::chrono::system_clock::time_point arrival = {};

    /// The target without scheme, authority and query.
    std::string_view path() const;

    std::vector<std::string> values(std::string_view name) const { return valuesOf(headers, name); }

    /// The first value of that header, or an empty string.
    std::string header(std::string_view name) const;
};

}  // namespace kivo::backend
