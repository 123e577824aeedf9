#include "kivo/platform/base/Error.h"

#include <algorithm>
#include <iterator>

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

/// What `ask` finds out about an error of the platform's; what() of any other.
template <typename Ask>
std::string askOrWhat(const std::exception& error, Ask ask) {
    const auto* ours = dynamic_cast<const Error*>(&error);
    return ours != nullptr ? ask(*ours) : error.what();
}

template <typename Text>
std::string textInTransit(const std::exception_ptr& error, Text text) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        return text(exception);
    } catch (...) {
        return "unknown error";
    }
}

}  // namespace

NSError::NSError(std::string_view domain, int code)
    : Error("Error Domain=" + std::string(domain) + " Code=" + std::to_string(code) +
            " \"(null)\""),
      localized_("The operation couldn’t be completed. (" + std::string(domain) + " error " +
                 std::to_string(code) + ".)"),
      code_(code) {}

std::string NSError::localizedDescription() const { return localized_.what(); }

URLError::URLError(Code code)
    : Error("Error Domain=NSURLErrorDomain Code=" + std::to_string(code) + " \"" + textOf(code) +
            "\""),
      code_(code) {}

std::string URLError::localizedDescription() const { return textOf(code_); }

std::string describe(const std::exception& error) {
    return askOrWhat(error, [](const Error& ours) { return ours.description(); });
}

std::string localizedDescription(const std::exception& error) {
    return askOrWhat(error, [](const Error& ours) { return ours.localizedDescription(); });
}

std::string describe(const std::exception_ptr& error) {
    return textInTransit(error, [](const std::exception& it) { return describe(it); });
}

std::string localizedDescription(const std::exception_ptr& error) {
    return textInTransit(error, [](const std::exception& it) { return localizedDescription(it); });
}

}  // namespace kivo::platform
