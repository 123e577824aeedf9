#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kivo::platform {

/// An absolute URL, or a relative one, of which only the text is available. Immutable; its text is
/// always ASCII without white space or control characters.
class URL {
public:
    /// Parses `text`. Characters that a URL may not hold are percent-encoded, including the "%" of
    /// a malformed escape, and a host that is not ASCII becomes its IDNA form, whatever the
    /// locale; everything else stays as given. Empty if the text is empty, if its scheme, host or
    /// port is invalid, or if its host has no IDNA form.
    static std::optional<URL> parse(std::string_view text);

    const std::string& absoluteString() const { return text_; }

    /// In lower case; empty for a relative URL.
    const std::string& scheme() const { return scheme_; }

    /// In lower case, with the brackets of an IPv6 literal; empty if there is no host.
    const std::string& host() const { return host_; }

    /// The port as written, or else the scheme's default; 0 if there is neither, 65536 if the
    /// number is too large.
    int effectivePort() const { return port_; }

    /// Whether scheme, host and effective port are the same.
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
