#pragma once

#include <string>
#include <utility>

#include "kivo/platform/url/URL.h"

namespace kivo::platform {

/// The metadata of a reply. Shared and const.
class URLResponse {
public:
    explicit URLResponse(URL url) : url_(std::move(url)) {}
    virtual ~URLResponse() = default;
    URLResponse(const URLResponse&) = delete;
    URLResponse& operator=(const URLResponse&) = delete;

    /// The URL that replied, after redirects.
    const URL& url() const { return url_; }

private:
    URL url_;
};

/// The reply of an HTTP server.
class HTTPURLResponse final : public URLResponse {
public:
    HTTPURLResponse(URL url, int statusCode, std::string contentEncoding = "")
        : URLResponse(std::move(url)),
          statusCode_(statusCode),
          contentEncoding_(std::move(contentEncoding)) {}

    int statusCode() const { return statusCode_; }

    /// The token in the Content-Encoding field; empty without one.
    const std::string& contentEncoding() const { return contentEncoding_; }

private:
    int statusCode_;
    std::string contentEncoding_;
};

/// The status of `response` if it is an HTTP response, else 0.
inline int httpStatusCode(const URLResponse* response) {
    const auto* http = dynamic_cast<const HTTPURLResponse*>(response);
    return http == nullptr ? 0 : http->statusCode();
}

/// The content encoding of `response` if it is an HTTP response, else the empty text.
inline std::string contentEncoding(const URLResponse* response) {
    const auto* http = dynamic_cast<const HTTPURLResponse*>(response);
    return http == nullptr ? "" : http->contentEncoding();
}

}  // namespace kivo::platform
