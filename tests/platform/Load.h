#pragma once

#include <future>
#include <string>

#include "kivo/platform/session/URLSession.h"
#include "kivo/platform/url/URLError.h"
#include "tests/support/Background.h"

namespace kivo::tests {

/// A request for an address that must be one.
inline platform::URLRequest requestFor(std::string_view url, std::string method = "GET") {
    platform::URLRequest request(platform::URL::parse(url).value());
    request.setHTTPMethod(std::move(method));
    return request;
}

inline std::string code(const std::exception_ptr& error) {
    try {
        if (error) std::rethrow_exception(error);
    } catch (const platform::URLError& urlError) {
        return std::to_string(urlError.code());
    }
    return "";
}

/// A data task, and as text all that its handler received: the error's code, the response's status,
/// a space and the data, each only if there is one: "200 text", "-1001", " " for empty data alone.
class Load {
public:
    Load(const platform::URLSession& session, platform::URLRequest request)
        : task_(session.dataTask(request, [end = end_](auto data, auto response, auto error) {
              const auto status = std::to_string(platform::httpStatusCode(response.get()));
              const auto content = data ? " " + *data : "";
              EXPECT_NO_THROW(end->set_value(code(error) + (response ? status : "") + content));
          })) {}
    Load& resume() { return task_->resume(), *this; }
    void cancel() { task_->cancel(); }
    bool hasEnded(std::chrono::milliseconds within = {}) {
        return outcome_.wait_for(within) == std::future_status::ready;
    }
    std::string outcome() { return hasEnded(patience) ? outcome_.get() : "did not end"; }

private:
    std::shared_ptr<std::promise<std::string>> end_ = std::make_shared<std::promise<std::string>>();
    std::shared_ptr<platform::URLSessionDataTask> task_;
    std::shared_future<std::string> outcome_ = end_->get_future();
};

}  // namespace kivo::tests
