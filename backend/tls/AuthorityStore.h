#pragma once

#include <filesystem>

#include "backend/tls/Authority.h"

namespace kivo::backend {

struct StoredAuthority {
    Authority authority;
    /// The file that clients must trust: the certificate alone.
    std::filesystem::path trustFile;
};

/// Loads the authority in the folder, or creates and stores one; one that is damaged is replaced,
/// one that expires soon is renewed. Concurrent processes get the same one. Only the owner can
/// access the folder. Throws std::runtime_error, with a message for the user, if the folder cannot
/// be used, or if it or a file in it belongs to another user.
StoredAuthority openAuthorityStore(const std::filesystem::path& folder);

/// $XDG_DATA_HOME/kivo-dev, by default ~/.local/share/kivo-dev. Throws std::runtime_error if
/// neither XDG_DATA_HOME nor HOME is set.
std::filesystem::path authorityFolder();

}  // namespace kivo::backend
