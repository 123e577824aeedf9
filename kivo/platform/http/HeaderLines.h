#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace kivo::platform {

/// Header lines as the list that libcurl reads, in two allocations however many there are.
class HeaderLines {
public:
    /// Adds a line, which is given in parts and holds no NUL.
    void add(std::initializer_list<std::string_view> parts) {
        text_.reserve(usualSize);
        for (const auto part : parts) text_ += part;
        text_ += '\0';
        ++count_;
    }

    /// Valid until another line is added or the object is destroyed.
    curl_slist* list() {
        nodes_.resize(count_);
        char* line = text_.data();
        for (auto& node : nodes_) {
            node = {.data = line, .next = &node + 1};
            line += std::string_view(line).size() + 1;
        }
        if (count_ > 0) nodes_.back().next = nullptr;
        return nodes_.data();
    }

private:
    static constexpr std::size_t usualSize = 512;

    std::string text_;
    std::size_t count_ = 0;
    std::vector<curl_slist> nodes_;
};

}  // namespace kivo::platform
