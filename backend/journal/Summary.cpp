#include "backend/journal/Summary.h"

#include <chrono>

#include "backend/journal/RequestLine.h"

namespace kivo::backend {

namespace {

std::string counted(std::uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

/// What a client that does not believe the certificate says, in OpenSSL's words.
bool isDistrust(const std::string& reason) {
    return reason.find("unknown ca") != reason.npos || reason.find("certificate") != reason.npos;
}

}  // namespace

std::string summaryOf(const Totals& totals) {
    std::string text;
    for (const auto& [endpoint, count] : totals.requests)
        text += "  " + endpoint + "  " + std::to_string(count) + "\n";
    if (totals.requests.empty())
        text =
            "  no request came; is the base URL's host among those answered here? A program that "
            "does not go by https_proxy cannot be led here\n";
    return text + "  " + counted(totals.refreshes, "refresh", "refreshes") + ", " +
           counted(totals.violations, "request", "requests") + " that broke the contract\n";
}

std::string handshakeLine(const std::string& reason) {
    const auto line = localTime(std::chrono::system_clock::now()) +
                      "  (no request)  TLS handshake failed: " + reason;
    if (!isDistrust(reason)) return line + "\n";
    return line + "; the client does not trust this backend: does it go by SSL_CERT_FILE?\n";
}

}  // namespace kivo::backend
