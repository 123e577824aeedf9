#include "backend/run/Cause.h"

#include <csignal>

#include "backend/base/ExitStatus.h"

namespace kivo::backend {

namespace {

constexpr std::chrono::seconds brief(2);

}  // namespace

std::string likelyCause(const Totals& totals, int exitStatus,
                        std::chrono::steady_clock::duration lifetime) {
    if (exitStatus == exitStatus::signalled + SIGABRT)
        return "it aborted, as it does when its first request finds no application identifier: "
               "write KIVO_BUNDLE_IDENTIFIER(\"com.example.app\") in one of its source files";
    if (totals.failedHandshakes > 0)
        return "it does not trust this backend: see the TLS handshakes that failed above";
    if (!totals.forwarded.empty())
        return "it connected to other hosts only: is one of them your base URL's? --host answers "
               "for it here";
    if (lifetime < brief)
        return "it ended before its requests left: wait for them, as with "
               "KivoSDK::waitUntilIdle, or it does not use the proxy in https_proxy";
    return "it does not use the proxy in https_proxy: use \"kivo-dev serve\" and a build whose "
           "base URL is https://localhost:8443/";
}

}  // namespace kivo::backend
