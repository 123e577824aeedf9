#pragma once

#include <any>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "kivo/platform/base/Result.h"
#include "kivo/platform/json/JSON.h"
#include "kivo/platform/session/URLSession.h"

namespace kivo {

/// The framework's HTTP client. It builds a JSON request, sends it on its own session, whose only
/// protocol is the `AuthInterceptor`, and decodes the reply. It ignores the status code: anything
/// that decodes is a reply.
class NetworkClient {
public:
    using Parameters = std::map<std::string, std::any>;
    template <typename T>
    using Completion = std::function<void(platform::Result<T>)>;

    /// A reply's body and its content encoding, which is empty unless the server encoded it.
    struct Body {
        platform::Data data;
        std::string encoding;
    };

    /// Never destroyed: background work may outlive main().
    static NetworkClient& instance();

    /// Calls `endpoint`, a path relative to the base URL, and returns at once. `parameters` become
    /// the JSON body if `method` is exactly "POST" or "PUT"; otherwise they are ignored.
    /// `completion` is called exactly once: on the calling thread if the URL is invalid, otherwise
    /// on the loop. Throws std::bad_alloc or std::system_error if memory or threads run out;
    /// `completion` is then not called.
    template <typename T>
    void request(std::string_view endpoint, std::string_view method,
                 const std::optional<Parameters>& parameters, Completion<T> completion) {
        load(endpoint, method, parameters,
             [completion = std::move(completion)](platform::Result<Body> body) {
                 completion(decoded<T>(std::move(body)));
             });
    }

private:
    NetworkClient();

    template <typename T>
    static platform::Result<T> decoded(platform::Result<Body> result) {
        if (result.error) return std::move(result.error);
        const Body& body = *result.value;
        try {
            return platform::JSON::decode<T>(body.data);
        } catch (...) {
            return decodingError(body);
        }
    }

    static std::exception_ptr decodingError(const Body& body);

    void load(std::string_view endpoint, std::string_view method,
              const std::optional<Parameters>& parameters, Completion<Body> completion);
    std::optional<platform::URLRequest> createRequest(
        std::string_view endpoint, std::string_view method,
        const std::optional<Parameters>& parameters) const;
    std::string baseUrl(const std::string& key) const;

    const std::map<std::string, std::string> baseUrlMap_;
    platform::URLSession session_;
};

}  // namespace kivo
