#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <future>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "kivo/platform/Error.h"
#include "kivo/platform/URLSession.h"
#include "tests/platform/Background.h"
#include "tests/support/Patience.h"

namespace kivo::tests {

/// A request for an address that must be one.
inline platform::URLRequest requestFor(std::string_view url) {
    return platform::URLRequest(platform::URL::parse(url).value());
}

/// What a completion handler received. The error's code is 0 when there was none.
struct Outcome {
    std::optional<platform::Data> data;
    std::shared_ptr<const platform::URLResponse> response;
    int errorCode = 0;

    int status() const { return platform::httpStatusCode(response.get()); }
};

inline int errorCode(const std::exception_ptr& error) {
    try {
        if (error) std::rethrow_exception(error);
        return 0;
    } catch (const platform::URLError& urlError) {
        return urlError.code();
    } catch (...) {
        return 1;
    }
}

/// A data task and its outcome.
class Load {
public:
    Load(const platform::URLSession& session, platform::URLRequest request)
        : task_(session.dataTask(
              std::move(request), [end = end_](auto data, auto response, auto error) {
                  if (end->calls++ == 0)
                      end->outcome.set_value({std::move(data), response, errorCode(error)});
              })) {}

    Load& resume() {
        task_->resume();
        return *this;
    }

    void cancel() { task_->cancel(); }

    bool hasEnded(std::chrono::milliseconds within = std::chrono::milliseconds(0)) {
        return future_.wait_for(within) == std::future_status::ready;
    }

    Outcome outcome() {
        if (future_.wait_for(patience) == std::future_status::ready) return future_.get();
        ADD_FAILURE() << "the load did not end";
        return {};
    }

    int handlerCalls() const { return end_->calls; }

private:
    struct End {
        std::promise<Outcome> outcome;
        std::atomic<int> calls{0};
    };

    std::shared_ptr<End> end_ = std::make_shared<End>();
    std::shared_ptr<platform::URLSessionDataTask> task_;
    std::shared_future<Outcome> future_ = end_->outcome.get_future();
};

}  // namespace kivo::tests
