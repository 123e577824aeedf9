#pragma once

#include <cstdint>
#include <string>

namespace kivo::backend {

/// Talks to a running backend through its admin port.
class AdminClient {
public:
    explicit AdminClient(std::uint16_t port) : port_(port) {}

    /// The JSON text of the backend's reply. With a message for the user, throws NoBackend
    /// if none is running there, std::invalid_argument if the request is wrong in itself, and
    /// std::runtime_error if it is refused for another reason.
    std::string get(const std::string& target) const { return ask("GET", target, ""); }
    std::string post(const std::string& target, const std::string& body) const {
        return ask("POST", target, body);
    }
    std::string remove(const std::string& target, const std::string& body) const {
        return ask("DELETE", target, body);
    }

private:
    std::string ask(const std::string& method, const std::string& target,
                    const std::string& body) const;

    const std::uint16_t port_;
};

}  // namespace kivo::backend
