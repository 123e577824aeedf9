// Addresses, redirects and header values that a server chooses: whatever they are, no URL holds
// what could break a request line, no header breaks its own, and nothing but a bare GET leaves the
// origin.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "kivo/platform/http/HTTPRedirect.h"
#include "kivo/platform/url/URL.h"

namespace {

using kivo::platform::URL;
using kivo::platform::URLRequest;

void require(bool holds) {
    if (!holds) std::abort();
}

void follow(const URLRequest& sent, const std::string& location) {
    for (const int status : {200, 300, 301, 302, 303, 304, 307, 308}) {
        const auto next = kivo::platform::redirectedRequest(sent, status, location);
        if (!next || next->url().hasSameOrigin(sent.url())) continue;
        require(next->httpMethod() == "GET" && !next->httpBody() && next->headerFields().empty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (const auto url = URL::parse(text)) {
        const std::string& whole = url->absoluteString();
        for (const char c : whole) require(c > ' ' && c < '\x7f');
        // Without a scheme, an encoded bracket may no longer tell the colon behind it from one.
        const auto again = URL::parse(whole);
        require(again ? again->absoluteString() == whole && again->hasSameOrigin(*url)
                      : url->scheme().empty());
    }
    URLRequest bare(*URL::parse("https://localhost:8443/a"));
    follow(bare, text);
    URLRequest secret = bare;
    secret.setHTTPMethod("POST");
    secret.setHTTPBody("body");
    secret.addValue("Bearer u-1", "Authorization");
    secret.addValue(text, "Authorization");
    secret.addValue("value", text);
    for (const auto& [name, value] : secret.headerFields())
        require((name + value).find_first_of(std::string("\r\n\0", 3)) == std::string::npos);
    follow(secret, text);
    return 0;
}
