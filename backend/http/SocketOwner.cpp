#include "backend/http/SocketOwner.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <span>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

namespace {

using boost::asio::ip::tcp;

struct Question {
    nlmsghdr head{};
    inet_diag_req_v2 socket{};
};

struct Answer {
    nlmsghdr head{};
    inet_diag_msg socket{};
};

void copyAddress(const tcp::endpoint& endpoint, std::span<std::uint32_t, 4> words) {
    const auto copy = [&](const auto& bytes) {
        std::ranges::copy(bytes, reinterpret_cast<unsigned char*>(words.data()));
    };
    const auto address = endpoint.address();
    address.is_v4() ? copy(address.to_v4().to_bytes()) : copy(address.to_v6().to_bytes());
}

Question questionAbout(const tcp::endpoint& local, const tcp::endpoint& remote) {
    Question question;
    question.head.nlmsg_len = sizeof question;
    question.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.head.nlmsg_flags = NLM_F_REQUEST;
    question.socket.sdiag_family = local.address().is_v4() ? AF_INET : AF_INET6;
    question.socket.sdiag_protocol = IPPROTO_TCP;
    question.socket.idiag_states = ~0U;
    auto& id = question.socket.id;
    id.idiag_sport = htons(local.port());
    id.idiag_dport = htons(remote.port());
    copyAddress(local, id.idiag_src);
    copyAddress(remote, id.idiag_dst);
    std::ranges::fill(id.idiag_cookie, INET_DIAG_NOCOOKIE);
    return question;
}

}  // namespace

std::optional<SocketOwner> ownerOf(const tcp::endpoint& local, const tcp::endpoint& remote) {
    const int file = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    if (file < 0) return std::nullopt;
    const FileDescriptor kernel(file, "the kernel's table of sockets");
    const auto question = questionAbout(local, remote);
    Answer answer;
    if (send(file, &question, sizeof question, 0) < 0) return std::nullopt;
    const auto size = recv(file, &answer, sizeof answer, MSG_DONTWAIT);
    const bool isAnswer = size == sizeof answer && answer.head.nlmsg_type == SOCK_DIAG_BY_FAMILY;
    if (!isAnswer) return std::nullopt;
    return SocketOwner{.user = answer.socket.idiag_uid, .isOpen = answer.socket.idiag_inode != 0};
}

}  // namespace kivo::backend
