#include <memory>
#include <optional>
#include <semaphore>
#include <utility>

#include "kivo/network/URLSession+Synchronous.h"
#include "kivo/platform/system/FatalError.h"
#include "kivo/platform/tasks/Loop.h"

namespace kivo {

platform::URLSession::DataAndResponse synchronousDataTask(const platform::URLSession& session,
                                                          platform::URLRequest request) {
    if (platform::Loop::isCurrent())
        platform::fatalError("synchronousDataTask(with:) called on the loop that has to answer it");

    std::binary_semaphore answered(0);
    platform::Data received;
    std::shared_ptr<const platform::URLResponse> answer;
    session
        .dataTask(std::move(request),
                  [&](auto data, auto response, auto /*error*/) {
                      received = std::move(data).value_or(platform::Data());
                      answer = std::move(response);
                      answered.release();
                  })
        ->resume();
    answered.acquire();
    if (!answer) platform::foundNil();
    return {std::move(received), std::move(answer)};
}

}  // namespace kivo
