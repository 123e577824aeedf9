#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kivo/platform/Data.h"
#include "kivo/platform/URL.h"

namespace kivo::platform {

/// One request as the caller wants it sent: a value, safe to copy.
class URLRequest {
public:
    using HeaderFields = std::vector<std::pair<std::string, std::string>>;

    explicit URLRequest(URL url) : url_(std::move(url)) {}

    const URL& url() const { return url_; }
    void setURL(URL url) { url_ = std::move(url); }

    /// Sent as spelled.
    const std::string& httpMethod() const { return httpMethod_; }
    void setHTTPMethod(std::string method) { httpMethod_ = std::move(method); }

    const std::optional<Data>& httpBody() const { return httpBody_; }
    void setHTTPBody(std::optional<Data> body) { httpBody_ = std::move(body); }

    /// How long the transfer may be idle, or slower than a byte a second.
    std::chrono::milliseconds timeoutInterval() const { return timeoutInterval_; }
    void setTimeoutInterval(std::chrono::milliseconds interval) { timeoutInterval_ = interval; }

    /// Whether the body of the reply is thrown away as it comes, whatever its size.
    bool discardsReplyBody() const { return discardsReplyBody_; }
    void setDiscardsReplyBody(bool discards) { discardsReplyBody_ = discards; }

    /// Adds to the field, in any letter case: a value that is there already stays in front, joined
    /// by a comma. A name or value that could break out of its line (CR, LF, NUL) is not stored at
    /// all.
    void addValue(std::string_view value, std::string_view field);

    std::optional<std::string> value(std::string_view field) const;
    const HeaderFields& headerFields() const { return headerFields_; }

private:
    std::string* find(std::string_view field);

    URL url_;
    std::string httpMethod_ = "GET";
    HeaderFields headerFields_;
    std::optional<Data> httpBody_;
    std::chrono::milliseconds timeoutInterval_ = std::chrono::seconds(60);
    bool discardsReplyBody_ = false;
};

/// Whether `text` is a token of the HTTP grammar, as method and field names must be.
bool isHTTPToken(std::string_view text);

}  // namespace kivo::platform
