#include "kivo/platform/Bundle.h"

#include <atomic>
#include <memory>
#include <new>
#include <utility>

namespace kivo::platform {

namespace {

/// Initialised before any static constructor runs, since hosts may set theirs in one; never freed.
constinit std::atomic<const std::string*> identifierInUse{nullptr};

}  // namespace

void Bundle::setMainIdentifier(std::string identifier) noexcept {
    auto candidate =
        std::unique_ptr<std::string>(new (std::nothrow) std::string(std::move(identifier)));
    const std::string* none = nullptr;
    if (identifierInUse.compare_exchange_strong(none, candidate.get()))
        static_cast<void>(candidate.release());
}

std::optional<std::string> Bundle::mainIdentifier() {
    const std::string* identifier = identifierInUse;
    return identifier != nullptr ? std::optional(*identifier) : std::nullopt;
}

}  // namespace kivo::platform
