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

bool isRejection(const std::string& reason) { return reason.starts_with("rejected"); }

std::string summaryOf(const Totals& totals) {
    std::string text;
    for (const auto& [endpoint, count] : totals.requests)
        text += "  " + endpoint + "  " + std::to_string(count) + "\n";
    return text + "  " + counted(totals.refreshes, "refresh", "refreshes") + ", " +
           counted(totals.violations, "request", "requests") + " that broke the contract\n";
}

std::string handshakeLine(const std::string& reason) {
    const auto line = localTime(std::chrono::system_clock::now()) + "  (no request)  " +
                      (isRejection(reason) ? "" : "TLS handshake failed: ") + reason;
    if (reason.find("expired") != reason.npos)
        return line +
               "; for the client, the certificate has expired: is its clock right? This backend "
               "has "
               "a new one after a restart\n";
    if (!isDistrust(reason)) return line + "\n";
    return line + "; the client does not trust this backend: does it use SSL_CERT_FILE?\n";
}

}  // namespace kivo::backend
