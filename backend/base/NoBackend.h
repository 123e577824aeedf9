#pragma once

#include <stdexcept>

namespace kivo::backend {

/// No backend is running where a command looked for it, or none could be started. The message is
/// for the user.
class NoBackend : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace kivo::backend
