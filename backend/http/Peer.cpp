#include "backend/http/Peer.h"

#include <netinet/tcp.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include "backend/http/SocketOwner.h"

namespace kivo::backend {

namespace {

using boost::asio::ip::tcp;

/// As a kernel of that byte order writes it: each 32-bit word of the address in hexadecimal, then
/// the port.
template <typename Bytes>
std::string kernelText(const Bytes& bytes, unsigned port, std::endian order) {
    std::string text;
    std::array<char, 16> part{};
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const auto place = order == std::endian::big ? at : at ^ 3;  // Backwards in its word.
        std::snprintf(part.data(), part.size(), "%02X", unsigned{bytes[place]});
        text += part.data();
    }
    std::snprintf(part.data(), part.size(), ":%04X", port);
    return text + part.data();
}

std::string kernelText(const tcp::endpoint& endpoint, std::endian order) {
    const auto address = endpoint.address();
    return address.is_v4() ? kernelText(address.to_v4().to_bytes(), endpoint.port(), order)
                           : kernelText(address.to_v6().to_bytes(), endpoint.port(), order);
}

/// The user in a row "number: local remote state queues timer retransmits user timeout inode". A
/// socket that its program has closed has no inode, and its user is unknown.
std::optional<uid_t> userIn(const std::string& row) {
    std::istringstream words(row);
    std::string ignored;
    for (int count = 0; count < 7; ++count) words >> ignored;
    uid_t user = 0;
    unsigned long inode = 0;
    words >> user >> ignored >> inode;
    return words && inode != 0 ? std::optional(user) : std::nullopt;
}

/// Whom a connection belongs to, by one of the kernel's tables. The byte order of an emulated
/// program may differ from the kernel's, so both are looked for.
std::optional<uid_t> userIn(std::ifstream table, const tcp::endpoint& local,
                            const tcp::endpoint& remote) {
    const auto pair = [&](std::endian order) {
        return kernelText(local, order) + " " + kernelText(remote, order);
    };
    const auto little = pair(std::endian::little);
    const auto big = pair(std::endian::big);
    for (std::string row; std::getline(table, row);)
        if (row.find(little) != row.npos || row.find(big) != row.npos) return userIn(row);
    return std::nullopt;
}

tcp::endpoint mapped(const tcp::endpoint& endpoint) {
    namespace ip = boost::asio::ip;
    return {ip::make_address_v6(ip::v4_mapped, endpoint.address().to_v4()), endpoint.port()};
}

bool canAskKernel() { return static_cast<bool>(std::ifstream("/proc/net/tcp")); }

/// Slower than ownerOf(), by a hundredth of a second and more, but known to every kernel.
std::optional<uid_t> userInTables(const tcp::endpoint& own, const tcp::endpoint& peer) {
    const bool isV4 = peer.address().is_v4();
    const auto user = userIn(std::ifstream(isV4 ? "/proc/net/tcp" : "/proc/net/tcp6"), peer, own);
    if (user || !isV4) return user;
    // Some clients use IPv6 sockets for IPv4 addresses.
    return userIn(std::ifstream("/proc/net/tcp6"), mapped(peer), mapped(own));
}

/// The user of the program at the other end, unless it has closed its socket.
std::optional<uid_t> peerUser(const tcp::socket& socket) {
    boost::system::error_code gone;
    const auto peer = socket.remote_endpoint(gone);
    const auto own = socket.local_endpoint(gone);
    if (gone) return std::nullopt;
    const auto owner = ownerOf(peer, own);
    if (!owner) return userInTables(own, peer);
    return owner->isOpen ? std::optional(owner->user) : std::nullopt;
}

int stateOf(tcp::socket& socket) {
    tcp_info info{};
    socklen_t size = sizeof info;
    const int failed = getsockopt(socket.native_handle(), IPPROTO_TCP, TCP_INFO, &info, &size);
    return failed ? static_cast<int>(TCP_CLOSE) : info.tcpi_state;
}

}  // namespace

bool isOwnUser(const tcp::socket& socket) {
    if (!canAskKernel()) return true;
    const auto user = peerUser(socket);
    return user && (*user == geteuid() || *user == 0);
}

bool hasLeft(tcp::socket& socket) {
    const int state = stateOf(socket);
    if (state != TCP_CLOSE_WAIT) return state != TCP_ESTABLISHED;
    return !canAskKernel() || !peerUser(socket);
}

}  // namespace kivo::backend
