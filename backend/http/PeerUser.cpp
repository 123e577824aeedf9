#include "backend/http/PeerUser.h"

#include <unistd.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

namespace kivo::backend {

namespace {

using boost::asio::ip::tcp;

/// As the kernel writes it: each 32-bit word of the address in the machine's own byte order, in
/// hexadecimal, then the port.
template <typename Bytes>
std::string kernelText(const Bytes& bytes, unsigned port) {
    std::string text;
    std::array<char, 16> part{};
    for (std::size_t at = 0; at < bytes.size(); at += 4) {
        const auto word = std::bit_cast<std::uint32_t>(
            std::array{bytes[at], bytes[at + 1], bytes[at + 2], bytes[at + 3]});
        std::snprintf(part.data(), part.size(), "%08X", word);
        text += part.data();
    }
    std::snprintf(part.data(), part.size(), ":%04X", port);
    return text + part.data();
}

std::string kernelText(const tcp::endpoint& endpoint) {
    const auto address = endpoint.address();
    return address.is_v4() ? kernelText(address.to_v4().to_bytes(), endpoint.port())
                           : kernelText(address.to_v6().to_bytes(), endpoint.port());
}

/// The user in a row "number: local remote state queues timer retransmits user timeout inode", if
/// the row is the given socket's. A socket that its program has closed has no inode, and its user
/// is unknown.
std::optional<uid_t> userIn(const std::string& row, const std::string& local,
                            const std::string& remote) {
    std::istringstream words(row);
    std::string ignored, from, to;
    words >> ignored >> from >> to;
    if (from != local || to != remote) return std::nullopt;
    uid_t user = 0;
    unsigned long inode = 0;
    words >> ignored >> ignored >> ignored >> ignored >> user >> ignored >> inode;
    return words && inode != 0 ? std::optional(user) : std::nullopt;
}

/// Whom a connection belongs to, by one of the kernel's tables.
std::optional<uid_t> userIn(std::ifstream table, const std::string& local,
                            const std::string& remote) {
    for (std::string row; std::getline(table, row);)
        if (const auto user = userIn(row, local, remote)) return user;
    return std::nullopt;
}

tcp::endpoint mapped(const tcp::endpoint& endpoint) {
    namespace ip = boost::asio::ip;
    return {ip::make_address_v6(ip::v4_mapped, endpoint.address().to_v4()), endpoint.port()};
}

}  // namespace

bool isOwnUser(const tcp::socket& socket) {
    boost::system::error_code gone;
    const auto peer = socket.remote_endpoint(gone);
    const auto own = socket.local_endpoint(gone);
    if (gone) return false;
    if (!std::ifstream("/proc/net/tcp")) return true;
    const bool isV4 = peer.address().is_v4();
    auto user = userIn(std::ifstream(isV4 ? "/proc/net/tcp" : "/proc/net/tcp6"), kernelText(peer),
                       kernelText(own));
    if (!user && isV4)  // Some clients use IPv6 sockets for IPv4 addresses.
        user = userIn(std::ifstream("/proc/net/tcp6"), kernelText(mapped(peer)),
                      kernelText(mapped(own)));
    return user && (*user == geteuid() || *user == 0);
}

}  // namespace kivo::backend
