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
    /// The "host:port" that the client asked this server, as its proxy, to CONNECT to; else the
    /// Host header.
    std::string authority = {};
    /// Counts the server's connections from 1: equal numbers came over one kept-alive connection.
    std::uint64_t connection = 0;
    std::chrono::system_clock::time_point arrival = {};

    /// The target without scheme, authority and query.
    std::string_view path() const;

    std::vector<std::string> values(std::string_view name) const { return valuesOf(headers, name); }

    /// The first value of that name, or the empty text.
    std::string header(std::string_view name) const;
};

}  // namespace kivo::backend
