#include "kivo/platform/url/URLError.h"

#include <algorithm>

namespace kivo::platform {

namespace {

struct URLErrorText {
    URLError::Code code;
    const char* text;
};

constexpr URLErrorText urlErrorTexts[] = {
    {URLError::cancelled, "cancelled"},
    {URLError::badURL, "bad URL"},
    {URLError::timedOut, "The request timed out."},
    {URLError::unsupportedURL, "unsupported URL"},
    {URLError::cannotFindHost, "A server with the specified hostname could not be found."},
    {URLError::cannotConnectToHost, "Could not connect to the server."},
    {URLError::networkConnectionLost, "The network connection was lost."},
    {URLError::httpTooManyRedirects, "too many HTTP redirects"},
    {URLError::notConnectedToInternet, "The Internet connection appears to be offline."},
    {URLError::badServerResponse, "There was a bad response from the server."},
    {URLError::dataLengthExceedsMaximum, "resource exceeds maximum size"},
    {URLError::secureConnectionFailed, "A TLS error caused the secure connection to fail."},
    {URLError::serverCertificateUntrusted, "The certificate for this server is invalid."},
};

std::string textOf(URLError::Code code) {
    return std::ranges::find(urlErrorTexts, code, &URLErrorText::code)->text;
}

}  // namespace

URLError::URLError(Code code) : URLError(code, textOf(code)) {}

URLError::URLError(Code code, const std::string& text)
    : Error("Error Domain=NSURLErrorDomain Code=" + std::to_string(code) + " \"" + text + "\""),
      code_(code) {}

/// What the description has between its quotes.
std::string URLError::localizedDescription() const {
    const std::string_view description = what();
    const auto begin = description.find('"') + 1;
    return std::string(description.substr(begin, description.size() - begin - 1));
}

}  // namespace kivo::platform
