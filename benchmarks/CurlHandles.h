#pragma once

#include <curl/curl.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "benchmarks/Workload.h"

namespace kivo::benchmarks {

/// Easy handles that are set up once and used again and again, on one multi handle: libcurl as its
/// manual says it is fastest.
class CurlHandles {
public:
    explicit CurlHandles(const Load& load) : multi_(curl_multi_init()) {
        for (const auto& [name, value] : headers)
            headers_ = curl_slist_append(headers_, (std::string(name) + ": " + value).c_str());
        headers_ = curl_slist_append(headers_, "Expect:");
        curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, static_cast<long>(streams));
        const int limit = load.scheme == "h2" ? streams : connections;
        for (int count = 0; count < std::min(load.inFlight, limit); ++count)
            idle_.push_back(prepared(load));
    }

    CURLM* multi() const { return multi_; }
    bool hasIdle() const { return !idle_.empty(); }

    void begin() {
        curl_multi_add_handle(multi_, idle_.back());
        idle_.pop_back();
    }

    /// Moves bytes, and returns how many calls have ended.
    int perform() {
        int running = 0;
        curl_multi_perform(multi_, &running);
        int ended = 0;
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
            if (message->data.result != CURLE_OK) giveUp(curl_easy_strerror(message->data.result));
            idle_.push_back(message->easy_handle);
            curl_multi_remove_handle(multi_, message->easy_handle);
            ++ended;
        }
        return ended;
    }

    void wait() { curl_multi_poll(multi_, nullptr, 0, 10'000, nullptr); }

private:
    CURL* prepared(const Load& load) {
        CURL* easy = curl_easy_init();
        curl_easy_setopt(easy, CURLOPT_URL, load.url().c_str());
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
        curl_easy_setopt(easy, CURLOPT_PIPEWAIT, 1L);
        curl_easy_setopt(easy, CURLOPT_PROXY, "");
        curl_easy_setopt(easy, CURLOPT_NOPROXY, "");
        const bool isDirectory = std::filesystem::is_directory(load.trust);
        curl_easy_setopt(easy, CURLOPT_CAPATH, isDirectory ? load.trust.c_str() : nullptr);
        curl_easy_setopt(easy, CURLOPT_CAINFO, isDirectory ? nullptr : load.trust.c_str());
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers_);
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        using Writer = std::size_t (*)(char*, std::size_t, std::size_t, void*);
        const Writer discard = [](char*, std::size_t, std::size_t count, void*) { return count; };
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, discard);
        return easy;
    }

    CURLM* multi_;
    curl_slist* headers_ = nullptr;
    std::vector<CURL*> idle_;
};

}  // namespace kivo::benchmarks
