#pragma once

#include <curl/curl.h>

#include <vector>

#include "kivo/platform/base/Mutex.h"

namespace kivo::platform {

/// The sockets that libcurl has open, so that another thread can shut one down while the loop is
/// inside libcurl.
class Sockets {
public:
    /// Never destroyed.
    static Sockets& shared();

    /// Has `easy` open and close its sockets here.
    void serve(CURL* easy);

    /// Shuts down the socket that is being read from at this moment, if there is one, so that
    /// libcurl finds its end. Takes 50 ms.
    void shutDownBusiest() noexcept;

private:
    static curl_socket_t open(void* sockets, curlsocktype purpose, curl_sockaddr* address);
    static int close(void* sockets, curl_socket_t socket);

    Mutex mutex_;
    std::vector<int> open_ KIVO_GUARDED_BY(mutex_);
};

}  // namespace kivo::platform
