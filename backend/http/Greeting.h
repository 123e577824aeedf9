#pragma once

namespace kivo::backend {

/// How the server meets a client that begins TLS.
enum class Greeting {
    proper,
    untrusted,  ///< With a certificate for the right names from an authority that nobody trusts.
    refusal,    ///< With the alert that ends the handshake.
};

}  // namespace kivo::backend
