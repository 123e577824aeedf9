#pragma once

#include <curl/curl.h>

#include "kivo/platform/url/URLError.h"

namespace kivo::platform {

/// The platform's error for a transfer that libcurl ended with `code`.
URLError urlError(CURLcode code);

}  // namespace kivo::platform
