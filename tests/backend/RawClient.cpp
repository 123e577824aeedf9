#include "tests/backend/RawClient.h"

#include "tests/support/Patience.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace kivo::tests {
namespace {

constexpr timeval readingTime{.tv_sec = patience.count(), .tv_usec = 0};

}  // namespace

RawClient::RawClient(std::uint16_t port)
    : context_(SSL_CTX_new(TLS_client_method())),
      wire_(BIO_new_connect(("127.0.0.1:" + std::to_string(port)).c_str())) {
    if (BIO_do_connect(wire_.get()) != 1) throw std::runtime_error("nobody listens");
    const int socket = static_cast<int>(BIO_get_fd(wire_.get(), nullptr));
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &readingTime, sizeof readingTime);
}

bool RawClient::startTls(const std::string& trustFile, const std::string& host) {
    SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER, nullptr);
    SSL_CTX_load_verify_file(context_.get(), trustFile.c_str());
    BIO* tls = BIO_new_ssl(context_.get(), 1);
    SSL* session = nullptr;
    BIO_get_ssl(tls, &session);
    SSL_set1_host(session, host.c_str());
    wire_.reset(BIO_push(tls, wire_.release()));
    return BIO_do_handshake(wire_.get()) == 1;
}

void RawClient::send(const std::string& bytes) {
    BIO_write(wire_.get(), bytes.data(), static_cast<int>(bytes.size()));
}

bool RawClient::readMore() {
    std::array<char, 4096> bytes{};
    errno = 0;
    const int size = BIO_read(wire_.get(), bytes.data(), static_cast<int>(bytes.size()));
    if (size > 0) pending_.append(bytes.data(), static_cast<std::size_t>(size));
    if (size <= 0 && errno == EAGAIN) throw std::runtime_error("the server is silent");
    return size > 0;
}

std::string RawClient::readTo(const std::string& text) {
    while (pending_.find(text) == pending_.npos) {
        if (!readMore()) throw std::runtime_error("the server closed after: " + pending_);
    }
    const auto size = pending_.find(text) + text.size();
    const auto found = pending_.substr(0, size);
    pending_.erase(0, size);
    return found;
}

std::string RawClient::readToEnd() {
    while (readMore()) continue;
    return std::exchange(pending_, {});
}

}  // namespace kivo::tests
