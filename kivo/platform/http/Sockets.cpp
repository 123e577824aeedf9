#include "kivo/platform/http/Sockets.h"

#include <fcntl.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <new>
#include <thread>
#include <utility>

namespace kivo::platform {

namespace {

constexpr int unacknowledgedTimeoutMilliseconds = 20'000;
constexpr std::chrono::milliseconds observed{50};

/// A socket that closes on exec, gives up on a peer that no longer acknowledges, and does not take
/// the number of a standard stream that the host has closed.
int openSocket(const curl_sockaddr& address) {
    int opened = socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
    if (opened >= 0 && opened <= STDERR_FILENO) {
        const int taken = opened;
        opened = fcntl(taken, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        ::close(taken);
    }
    if (opened >= 0)
        setsockopt(opened, IPPROTO_TCP, TCP_USER_TIMEOUT, &unacknowledgedTimeoutMilliseconds,
                   sizeof unacknowledgedTimeoutMilliseconds);
    return opened;
}

/// The number of bytes read from `socket` since it was opened; too small by what arrives meanwhile.
std::int64_t bytesRead(int socket) {
    tcp_info told{};
    socklen_t size = sizeof told;
    int unread = 0;
    if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &told, &size) != 0 ||
        ioctl(socket, FIONREAD, &unread) != 0)
        return 0;
    return static_cast<std::int64_t>(told.tcpi_bytes_received) - unread;
}

}  // namespace

Sockets& Sockets::shared() {
    static Sockets& sockets = *new Sockets;
    return sockets;
}

void Sockets::serve(CURL* easy) {
    curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, open);
    curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, this);
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, close);
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
}

curl_socket_t Sockets::open(void* sockets, curlsocktype /*purpose*/, curl_sockaddr* address) {
    auto& self = *static_cast<Sockets*>(sockets);
    const int opened = openSocket(*address);
    if (opened < 0) return CURL_SOCKET_BAD;
    const Lock lock(self.mutex_);
    try {
        self.open_.push_back(opened);
        return opened;
    } catch (const std::bad_alloc&) {  // Must not unwind through libcurl.
        ::close(opened);
        return CURL_SOCKET_BAD;
    }
}

/// Closes it under the lock, so that the next file with its number is not shut down.
int Sockets::close(void* sockets, curl_socket_t socket) {
    auto& self = *static_cast<Sockets*>(sockets);
    const Lock lock(self.mutex_);
    std::erase(self.open_, socket);
    return ::close(socket);
}

/// The loop reads from one socket alone while it is stuck; data on the others lies unread.
void Sockets::shutDownBusiest() noexcept try {
    const Lock lock(mutex_);
    std::vector<std::pair<int, std::int64_t>> before;
    before.reserve(open_.size());
    for (const int socket : open_) before.emplace_back(socket, bytesRead(socket));
    std::this_thread::sleep_for(observed);
    int busiest = -1;
    std::int64_t most = 0;
    for (const auto& [socket, earlier] : before) {
        const std::int64_t meanwhile = bytesRead(socket) - earlier;
        if (meanwhile <= most) continue;
        busiest = socket;
        most = meanwhile;
    }
    if (busiest >= 0) shutdown(busiest, SHUT_RDWR);
} catch (const std::bad_alloc&) {  // Tried again a second later.
}

}  // namespace kivo::platform
