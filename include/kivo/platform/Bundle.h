#pragma once

#include <optional>
#include <string>

#include "kivo/platform/Export.h"

namespace kivo::platform {

/// Who the host application is.
class KIVO_EXPORT Bundle {
public:
    /// Names the host application, as in "com.example.app". The first call in a process wins. Any
    /// thread may call, at any time, also before main().
    static void setMainIdentifier(std::string identifier) noexcept;

    /// Empty until an identifier has been set.
    static std::optional<std::string> mainIdentifier();
};

}  // namespace kivo::platform

/// Names the host application before main() begins. Once, at namespace scope, in a source of the
/// host's own; in a static library of the host's the linker may leave such a source out, so call
/// `setMainIdentifier` there.
#define KIVO_BUNDLE_IDENTIFIER(identifier)                           \
    [[maybe_unused]] static const bool kivoBundleIdentifierIsKnown = \
        (::kivo::platform::Bundle::setMainIdentifier(identifier), true);
