#include "kivo/c/LineDescriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "kivo/platform/system/OutputSignals.h"

namespace kivo::c {

namespace {

/// A runtime such as Node's makes its pipes non-blocking.
bool waitForRoom(int descriptor) {
    pollfd taker{.fd = descriptor, .events = POLLOUT, .revents = 0};
    return poll(&taker, 1, -1) >= 0 || errno == EINTR;
}

bool mayGoOn(int descriptor) {
    return errno == EINTR || (errno == EAGAIN && waitForRoom(descriptor));
}

}  // namespace

LineDescriptor::LineDescriptor(int descriptor) noexcept
    : own_(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)), file_(own_) {}

LineDescriptor::~LineDescriptor() {
    if (file_.isAt(own_)) close(own_);
}

void LineDescriptor::write(std::string_view line) {
    const std::string text = std::string(line) + '\n';
    if (!file_.isAt(own_)) return;
    const platform::OutputSignals masked;
    for (std::string_view rest = text; !rest.empty();) {
        const ssize_t done = ::write(own_, rest.data(), rest.size());
        if (done < 0 && !mayGoOn(own_)) return;
        if (done > 0) rest.remove_prefix(static_cast<std::size_t>(done));
    }
}

}  // namespace kivo::c
