#pragma once

#include <string>

#include "kivo/platform/base/Error.h"

namespace kivo::platform {

/// Why a load failed.
class URLError : public Error {
public:
    enum Code : int {
        cancelled = -999,
        badURL = -1000,
        timedOut = -1001,
        unsupportedURL = -1002,
        cannotFindHost = -1003,
        cannotConnectToHost = -1004,
        networkConnectionLost = -1005,
        httpTooManyRedirects = -1007,
        notConnectedToInternet = -1009,
        badServerResponse = -1011,
        dataLengthExceedsMaximum = -1103,
        secureConnectionFailed = -1200,
        serverCertificateUntrusted = -1202
    };

    explicit URLError(Code code);

    /// With a text in place of the code's own.
    URLError(Code code, const std::string& text);

    Code code() const noexcept { return code_; }
    std::string localizedDescription() const override;

private:
    Code code_;
};

}  // namespace kivo::platform
