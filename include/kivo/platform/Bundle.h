#pragma once

#include <optional>
#include <string>

#include "kivo/platform/Export.h"
#include "kivo/platform/HostFlags.h"

namespace kivo::platform {

/// The identity of the host application.
class KIVO_EXPORT Bundle {
public:
    /// Sets the host application's identifier, such as "com.example.app". The first call in a
    /// process wins; later ones are ignored. May be called on any thread and at any time, even
    /// before main(). If memory runs out, the identifier stays unset.
    static void setMainIdentifier(std::string identifier) noexcept;

    /// Empty until an identifier has been set.
    static std::optional<std::string> mainIdentifier();
};

}  // namespace kivo::platform

/// Sets the host application's identifier before main() begins. Use it once, at namespace scope, in
/// one of the host's own source files. The linker may drop such a file from a static library: call
/// `setMainIdentifier` there instead.
#define KIVO_BUNDLE_IDENTIFIER(identifier)                           \
    [[maybe_unused]] static const bool kivoBundleIdentifierIsKnown = \
        (::kivo::platform::Bundle::setMainIdentifier(identifier), true);
