#pragma once

#include <optional>
#include <string>

namespace kivo::platform {

/// The certificate authorities that TLS connections trust: a file and a directory. Either one, if
/// not set, keeps libcurl's default, unless `directoryAlone` says that no file is to be used.
struct TrustStore {
    std::optional<std::string> file;
    std::optional<std::string> directory;
    bool directoryAlone = false;

    /// The machine's: SSL_CERT_FILE and SSL_CERT_DIR where they are set; otherwise libcurl's
    /// built-in directory alone if it holds a hashed link, which saves every new connection from
    /// parsing the whole bundle. A path that leads to anything but regular files counts as
    /// unreadable.
    static const TrustStore& current();
};

}  // namespace kivo::platform
