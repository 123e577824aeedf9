#pragma once

#include <string>

namespace kivo::backend {

/// Opens the address in the user's browser, with xdg-open; says so if that cannot be started. Does
/// not wait for it.
void openInBrowser(const std::string& url);

}  // namespace kivo::backend
