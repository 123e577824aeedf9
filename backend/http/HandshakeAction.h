#pragma once

namespace kivo::backend {

/// How the server treats a client that starts a TLS handshake.
enum class HandshakeAction {
    proceed,
    presentUntrusted,  ///< Presents a certificate for the right names from an unknown authority.
    refuse,            ///< Sends the alert that ends the handshake.
};

}  // namespace kivo::backend
