#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kivo::platform {

/// An address: absolute, or relative and then good for nothing but its text. Immutable; ASCII
/// without white space or control characters, whatever it was made of.
class URL {
public:
    /// Reads `text`, percent-encoding what a URL may not hold (a malformed escape's "%" too); else
    /// it is left as given. None when the text is empty, or its scheme, host or port cannot be one.
    static std::optional<URL> parse(std::string_view text);

    const std::string& absoluteString() const { return text_; }

    /// In lower case; empty for a relative address.
    const std::string& scheme() const { return scheme_; }

    /// In lower case, with the brackets of an IPv6 literal; empty when there is none.
    const std::string& host() const { return host_; }

    /// As written, or the scheme's own; 0 when there is neither, 65536 for whatever is too large.
    int effectivePort() const { return port_; }

    /// Whether both name one server: scheme, host and effective port.
    bool hasSameOrigin(const URL& other) const;

private:
    URL() = default;
    bool takeScheme(std::string_view& rest);
    bool takeAuthority(std::string_view& rest);
    bool takeHost(std::string_view host);
    bool takePort(std::string_view colonAndPort);
    void takeMarked(char mark, std::string_view& rest);

    std::string text_;
    std::string scheme_;
    std::string host_;
    int port_ = 0;
};

}  // namespace kivo::platform
