#pragma once

#include <openssl/bio.h>
#include <openssl/ssl.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kivo::tests {

/// A client that sends exactly the bytes it is given, over 127.0.0.1. No wait takes longer than its
/// patience.
class RawClient {
public:
    explicit RawClient(std::uint16_t port);

    /// Trusts the file alone and insists on the host's name; false when the server does not hold
    /// up.
    bool startTls(const std::string& trustFile, const std::string& host);

    void send(const std::string& bytes);

    /// Everything up to the text, which must come; throws std::runtime_error when it does not.
    std::string readTo(const std::string& text);

    /// Whatever comes until the server closes.
    std::string readToEnd();

private:
    struct Free {
        void operator()(BIO* bio) const { BIO_free_all(bio); }
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };

    /// False at the end.
    bool readMore();

    std::unique_ptr<SSL_CTX, Free> context_;
    std::unique_ptr<BIO, Free> wire_;
    std::string pending_;
};

}  // namespace kivo::tests
