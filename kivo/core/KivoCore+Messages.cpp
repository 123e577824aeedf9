#include <any>
#include <optional>
#include <string>
#include <utility>

#include "kivo/core/KivoCore.h"
#include "kivo/core/Operation.h"
#include "kivo/platform/Console.h"
#include "kivo/platform/base/Error.h"
#include "kivo/platform/json/JSON.h"
#include "kivo/platform/session/URLSession.h"

namespace kivo {

using platform::Console;
using platform::URLResponse;

namespace {

std::optional<std::string> imageAddress(const RemoteMessage& message) {
    const auto notification = message.find("notification");
    if (notification == message.end()) return std::nullopt;
    const auto image = notification->second.find("image");
    if (image == notification->second.end()) return std::nullopt;
    return platform::JSON::text(image->second);
}

void printHit(const std::string& address, const URLResponse* response,
              const std::exception_ptr& error) {
    if (error) {
        Console::print("Error hitting image URL: " + platform::localizedDescription(error));
    } else if (platform::httpStatusCode(response) == 200) {
        Console::print("Successfully hit the image URL: " + address);
    } else {
        Console::print("Failed to hit the image URL, received invalid response");
    }
}

/// A plain GET on the shared session, without identity or token; the body is discarded.
void hit(const platform::URL& url, const std::string& address) {
    platform::URLRequest request(url);
    request.setDiscardsReplyBody(true);
    const auto task = platform::URLSession::shared().dataTask(
        std::move(request),
        [address](const auto& /*data*/, const auto& response, const auto& error) {
            printHit(address, response.get(), error);
        });
    task->resume();
}

}  // namespace

void KivoCore::onMessageReceived(const RemoteMessage& message) noexcept {
    operation([&] {
        const auto address = imageAddress(message);
        if (!address) return Console::print("Failed to retrieve image URL");
        const auto url = platform::URL::parse(*address);
        if (!url) return Console::print("Invalid URL: " + *address);
        hit(*url, *address);
    });
}

}  // namespace kivo
