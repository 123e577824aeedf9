#pragma once

#include <filesystem>

#include "backend/tls/Authority.h"

namespace kivo::backend {

struct StoredAuthority {
    Authority authority;
    /// The file that clients are to trust: the certificate alone.
    std::filesystem::path trustFile;
};

/// Takes up the authority that the folder holds, or makes one there and keeps it; a damaged one and
/// one about to expire is replaced. Processes that come at the same time get the same one. The
/// folder is open to its owner alone. Throws std::runtime_error, with a text for the person at the
/// keyboard, when the folder cannot be used.
StoredAuthority openAuthorityStore(const std::filesystem::path& folder);

/// $XDG_DATA_HOME/kivo-dev, by default ~/.local/share/kivo-dev. Throws std::runtime_error without
/// either.
std::filesystem::path authorityFolder();

}  // namespace kivo::backend
