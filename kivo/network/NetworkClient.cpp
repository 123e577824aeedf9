#include "kivo/network/NetworkClient.h"

#include <chrono>
#include <exception>

#include "kivo/network/AuthInterceptor.h"
#include "kivo/network/BaseURLs.h"
#include "kivo/platform/Console.h"
#include "kivo/platform/base/Error.h"
#include "kivo/platform/json/DecodingError.h"
#include "kivo/platform/system/FatalError.h"
#include "kivo/storage/CacheManager.h"

namespace kivo {

using platform::Console;
using platform::Data;
using platform::NSError;
using platform::Result;
using platform::URLRequest;

namespace {

using Body = NetworkClient::Body;

constexpr std::chrono::seconds timeLimit{30};

platform::URLSessionConfiguration sessionConfiguration() {
    platform::URLSessionConfiguration configuration;
    configuration.protocolClasses = {platform::protocolClass<AuthInterceptor>()};
    configuration.timeoutIntervalForRequest = timeLimit;
    configuration.timeoutIntervalForResource = timeLimit;
    return configuration;
}

std::exception_ptr clientError(const char* domain) {
    return platform::makeError(NSError(domain, -1));
}

Result<Body> body(std::optional<Data> data, const platform::URLResponse* response,
                  std::exception_ptr error) {
    if (error) return error;
    if (!data) return clientError("No data");
    return Body{.data = *std::move(data), .encoding = platform::contentEncoding(response)};
}

/// The JSON body; empty if the parameters cannot be encoded, in which case the request is sent
/// without a body.
std::optional<Data> encodedBody(const NetworkClient::Parameters& parameters) {
    try {
        return platform::JSON::serialize(parameters);
    } catch (const std::exception& error) {
        Console::print("Failed to encode parameters: " + platform::describe(error));
        return std::nullopt;
    }
}

}  // namespace

NetworkClient::NetworkClient()
    : baseUrlMap_{{"prod", std::string(productionBaseUrl)},
                  {"dev", std::string(developmentBaseUrl)}},
      session_(sessionConfiguration()) {}

NetworkClient& NetworkClient::instance() {
    static NetworkClient& client = *new NetworkClient;
    return client;
}

void NetworkClient::load(std::string_view endpoint, std::string_view method,
                         const std::optional<Parameters>& parameters, Completion<Body> completion) {
    auto request = createRequest(endpoint, method, parameters);
    if (!request) return completion(clientError("Invalid Request"));

    session_
        .dataTask(*std::move(request),
                  [completion = std::move(completion)](auto data, auto response, auto error) {
                      completion(body(std::move(data), response.get(), std::move(error)));
                  })
        ->resume();
}

/// A server may compress its reply although nobody asked for it.
std::exception_ptr NetworkClient::decodingError(const Body& body) {
    if (body.encoding.empty()) return platform::currentError();
    return platform::makeError(platform::DecodingError(
        platform::DecodingError::Kind::dataCorrupted, "",
        "the reply is encoded with " + body.encoding + ", which Kivo does not ask for"));
}

std::optional<URLRequest> NetworkClient::createRequest(
    std::string_view endpoint, std::string_view method,
    const std::optional<Parameters>& parameters) const {
    std::string base = baseUrl("dev");
    if (CacheManager::instance().getIsProduction()) base = baseUrl("prod");

    auto url = platform::URL::parse(base.append(endpoint));
    if (!url) {
        Console::print("Invalid URL");
        return std::nullopt;
    }
    Console::print("url-is: " + url->absoluteString());

    URLRequest request(*std::move(url));
    request.setHTTPMethod(std::string(method));
    if (parameters && (method == "POST" || method == "PUT"))
        request.setHTTPBody(encodedBody(*parameters));
    return request;
}

std::string NetworkClient::baseUrl(const std::string& key) const {
    const auto entry = baseUrlMap_.find(key);
    return platform::unwrap(entry == baseUrlMap_.end() ? std::nullopt
                                                       : std::optional(entry->second));
}

}  // namespace kivo
