#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "backend/Authority.h"
#include "tests/support/Patience.h"

namespace kivo::tests {

/// A socket that listens on a free loopback port, and is inherited by started programs.
class LoopbackSocket {
public:
    LoopbackSocket() : descriptor_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(descriptor_, generic, size) != 0 || listen(descriptor_, SOMAXCONN) != 0 ||
            getsockname(descriptor_, generic, &size) != 0)
            throw std::system_error(errno, std::generic_category(), "listen");
        port_ = ntohs(address.sin_port);
    }
    ~LoopbackSocket() { close(descriptor_); }
    LoopbackSocket(const LoopbackSocket&) = delete;
    LoopbackSocket& operator=(const LoopbackSocket&) = delete;

    std::string descriptor() const { return std::to_string(descriptor_); }
    std::string address() const { return "127.0.0.1:" + port(); }
    std::string port() const { return std::to_string(port_); }

    /// Waits for a connection and takes it, never to say a word.
    bool awaitConnection() const {
        pollfd waiting{.fd = descriptor_, .events = POLLIN, .revents = 0};
        const auto limit = std::chrono::milliseconds(patience).count();
        return poll(&waiting, 1, static_cast<int>(limit)) == 1 &&
               accept(descriptor_, nullptr, nullptr) >= 0;
    }

private:
    int descriptor_;
    int port_;
};

/// nginx as a foreign peer: "/" tells protocol and connection, "/silent" never answers.
class NginxPeer {
public:
    static constexpr const char* program = "/usr/sbin/nginx";

    explicit NginxPeer(const std::filesystem::path& folder) : folder_(folder) {
        const auto authority = backend::Authority::make();
        const auto identity = authority.issue(backend::loopbackHosts());
        write("authority.pem", authority.certificate());
        write("certificate.pem", identity.certificate);
        write("key.pem", identity.privateKey);
        write("nginx.conf", configuration());
        start();
    }
    ~NginxPeer() {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
    }
    NginxPeer(const NginxPeer&) = delete;
    NginxPeer& operator=(const NginxPeer&) = delete;

    std::string trustFile() const { return folder_ / "authority.pem"; }
    std::string url(const std::string& path) const {
        return "https://localhost:" + secure_.port() + path;
    }
    /// TLS asked of the port that speaks plain HTTP.
    std::string mistakenUrl() const { return "https://localhost:" + plain_.port() + "/"; }
    bool awaitSilentRequest() const { return silence_.awaitConnection(); }

private:
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(folder_ / name) << text;
    }

    std::string configuration() const {
        std::string temporary;
        for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            temporary += std::string(kind) + "_temp_path " + kind + ";";
        return "daemon off; pid nginx.pid; events {} http { access_log off;" + temporary +
               "ssl_certificate certificate.pem; ssl_certificate_key key.pem;" +
               "server { listen " + secure_.address() + " ssl http2; listen " + plain_.address() +
               "; location / { return 200 '$server_protocol $connection'; }" +
               "location /silent { proxy_pass http://" + silence_.address() + "; } } }";
    }

    /// The sockets listen before nginx runs, so that nobody needs to wait for its start.
    void start() {
        const std::string inherited =
            "NGINX=" + secure_.descriptor() + ";" + plain_.descriptor() + ";";
        const std::string prefix = folder_.string() + "/";
        const char* arguments[] = {program,      "-p", prefix.c_str(), "-c",
                                   "nginx.conf", "-e", "error.log",    nullptr};
        const char* environment[] = {inherited.c_str(), nullptr};
        if (posix_spawn(&process_, program, nullptr, nullptr, const_cast<char**>(arguments),
                        const_cast<char**>(environment)) != 0)
            throw std::runtime_error("nginx does not start");
    }

    std::filesystem::path folder_;
    LoopbackSocket secure_;
    LoopbackSocket plain_;
    LoopbackSocket silence_;
    pid_t process_ = 0;
};

}  // namespace kivo::tests
