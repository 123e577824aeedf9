#include "kivo/platform/session/URLSession.h"

#include <optional>

#include "kivo/platform/tasks/Continuation.h"
#include "kivo/platform/url/URLError.h"

namespace kivo::platform {

namespace {

Result<URLSession::DataAndResponse> result(std::optional<Data> data,
                                           std::shared_ptr<const URLResponse> response,
                                           std::exception_ptr error) {
    if (error) return error;
    if (!response) return makeError(URLError(URLError::badServerResponse));
    return URLSession::DataAndResponse(std::move(data).value_or(Data()), std::move(response));
}

}  // namespace

URLSession::URLSession(URLSessionConfiguration configuration)
    : configuration_(std::make_shared<const URLSessionConfiguration>(std::move(configuration))) {}

URLSession& URLSession::shared() {
    static URLSession& session = *new URLSession(URLSessionConfiguration());
    return session;
}

std::shared_ptr<URLSessionDataTask> URLSession::dataTask(URLRequest request,
                                                         CompletionHandler handler) const {
    return std::make_shared<URLSessionDataTask>(configuration_, std::move(request),
                                                std::move(handler));
}

Task<URLSession::DataAndResponse> URLSession::data(URLRequest request) const {
    auto start = [&](const CheckedContinuation<DataAndResponse>& continuation) {
        auto resume = [continuation](auto data, auto response, auto error) {
            continuation.resume(result(std::move(data), std::move(response), std::move(error)));
        };
        // The operation may continue, and end, before this returns.
        dataTask(std::move(request), std::move(resume))->resume();
    };
    co_return co_await withCheckedThrowingContinuation<DataAndResponse>("data(for:)", start);
}

}  // namespace kivo::platform
