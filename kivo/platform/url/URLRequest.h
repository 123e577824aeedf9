#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kivo/platform/base/CopyOnWrite.h"
#include "kivo/platform/base/Data.h"
#include "kivo/platform/url/URL.h"

namespace kivo::platform {

/// A request as the caller wants it sent. A value, cheap to copy.
class URLRequest {
public:
    using HeaderFields = std::vector<std::pair<std::string, std::string>>;

    explicit URLRequest(URL url) : content_(Content{.url = std::move(url)}) {}

    const URL& url() const { return content_->url; }
    void setURL(URL url) { content_.own().url = std::move(url); }

    /// Sent exactly as spelled.
    const std::string& httpMethod() const { return content_->method; }
    void setHTTPMethod(std::string method) { content_.own().method = std::move(method); }

    const std::optional<Data>& httpBody() const { return content_->body; }
    void setHTTPBody(std::optional<Data> body) { content_.own().body = std::move(body); }

    /// How long the transfer may be idle or slower than one byte per second.
    std::chrono::milliseconds timeoutInterval() const { return content_->timeoutInterval; }
    void setTimeoutInterval(std::chrono::milliseconds interval) {
        content_.own().timeoutInterval = interval;
    }

    /// Whether the reply's body is discarded as it arrives, with no limit on its size.
    bool discardsReplyBody() const { return content_->discardsReplyBody; }
    void setDiscardsReplyBody(bool discards) { content_.own().discardsReplyBody = discards; }

    /// Adds `value` to `field`, ignoring the case of the name: it follows an existing value after a
    /// comma. A name that is not an HTTP token, or a value with CR, LF or NUL, is not stored: it
    /// could break out of its line.
    void addValue(std::string_view value, std::string_view field);

    std::optional<std::string> value(std::string_view field) const;
    const HeaderFields& headerFields() const { return content_->headerFields; }

private:
    struct Content {
        URL url;
        std::string method = "GET";
        HeaderFields headerFields = {};
        std::optional<Data> body = std::nullopt;
        std::chrono::milliseconds timeoutInterval = std::chrono::seconds(60);
        bool discardsReplyBody = false;
    };

    CopyOnWrite<Content> content_;
};

/// Whether `text` is a token of the HTTP grammar, as method and field names must be.
bool isHTTPToken(std::string_view text);

}  // namespace kivo::platform
