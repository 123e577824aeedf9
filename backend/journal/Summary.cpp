#include "backend/journal/Summary.h"

#include <chrono>

#include "backend/journal/RequestLine.h"

namespace kivo::backend {

namespace {

std::string counted(std::uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

/// Whether OpenSSL's reason says that the client rejected the certificate.
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
            "  no requests arrived; is the base URL's host among those answered here? A program "
            "that ignores https_proxy cannot be intercepted\n";
    return text + "  " + counted(totals.refreshes, "refresh", "refreshes") + ", " +
           counted(totals.violations, "request", "requests") + " that broke the contract\n";
}

std::string handshakeLine(const std::string& reason) {
    const auto line = localTime(std::chrono::system_clock::now()) +
                      "  (no request)  TLS handshake failed: " + reason;
    if (!isDistrust(reason)) return line + "\n";
    return line + "; the client does not trust this backend: does it use SSL_CERT_FILE?\n";
}

}  // namespace kivo::backend
