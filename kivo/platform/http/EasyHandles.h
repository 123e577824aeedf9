#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <new>
#include <vector>

#include "kivo/platform/http/HTTPTransfer.h"

namespace kivo::platform {

/// A pool of libcurl's easy handles: creating one costs more than a request does. Only for the
/// loop.
class EasyHandles {
public:
    EasyHandles() { idle_.reserve(kept); }

    /// A handle with the options that all exchanges share. Throws what HTTPTransfer::prepare
    /// throws.
    CURL* take() {
        if (idle_.empty()) return make();
        CURL* easy = idle_.back();
        idle_.pop_back();
        return easy;
    }

    /// Takes a handle back and keeps it if it is `fit`; does nothing for null. Needs no memory.
    void giveBack(CURL* easy, bool fit) {
        if (easy == nullptr) return;
        if (!fit || idle_.size() >= kept) return curl_easy_cleanup(easy);
        idle_.push_back(easy);
    }

private:
    static CURL* make() {
        CURL* easy = curl_easy_init();
        if (easy == nullptr) throw std::bad_alloc();
        try {
            HTTPTransfer::prepare(easy);
            return easy;
        } catch (...) {
            curl_easy_cleanup(easy);
            throw;
        }
    }

    static constexpr std::size_t kept = 24;

    std::vector<CURL*> idle_;
};

}  // namespace kivo::platform
