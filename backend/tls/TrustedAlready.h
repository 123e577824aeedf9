#pragma once

#include <string>

namespace kivo::backend {

/// The certificates that a program trusts without us: those in the file that SSL_CERT_FILE names,
/// else those in the file that CURL_CA_BUNDLE names, else the system's, of which there may be none.
/// Throws std::runtime_error, with a message for the user, if a file that a variable names cannot
/// be read.
std::string trustedAlready();

}  // namespace kivo::backend
