#pragma once

#include <optional>
#include <string>

namespace kivo::platform {

/// The certificate authorities that TLS connections trust. A half that is not set keeps libcurl's
/// default, unless `directoryAlone` says that there is to be no file.
struct TrustStore {
    std::optional<std::string> file;
    std::optional<std::string> directory;
    bool directoryAlone = false;

    /// The machine's: SSL_CERT_FILE and SSL_CERT_DIR where they are set, else libcurl's own
    /// directory alone if it holds a hashed link, which spares every new connection the parsing of
    /// the whole bundle.
    static const TrustStore& current();
};

}  // namespace kivo::platform
