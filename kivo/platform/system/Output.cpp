#include "kivo/platform/system/Output.h"

#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <utility>

#include "kivo/platform/system/OutputSignals.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/system/Thread.h"

namespace kivo::platform {

namespace {

/// A pipe that polls as writable takes this much at once, and whole.
constexpr std::size_t piece = PIPE_BUF;
constexpr int retryMilliseconds = 5;

/// For a standard output without a descriptor, such as one that the host has made of functions. A
/// failure that lost only our line leaves no error flag behind, which the host might take for its
/// own.
void writeThroughStream(const std::string& text) {
    const bool isHostsToo = ferror_unlocked(stdout) != 0 || __fpending(stdout) > 0;
    const bool isWritten = fwrite_unlocked(text.data(), 1, text.size(), stdout) == text.size();
    if ((!isWritten || fflush_unlocked(stdout) != 0) && !isHostsToo) clearerr_unlocked(stdout);
}

/// Whether `size` bytes fit into a pipe, or it is empty, or this is not a pipe.
bool takesWhole(int descriptor, std::size_t size) {
    const int capacity = fcntl(descriptor, F_GETPIPE_SZ);
    int unread = 0;
    if (capacity < 0 || ioctl(descriptor, FIONREAD, &unread) != 0 || unread == 0) return true;
    const auto taken = static_cast<std::size_t>(unread) + piece;  // The last page may be half full.
    return taken + size <= static_cast<std::size_t>(capacity);
}

}  // namespace

Output::Output() : standardOutput_(fileno(stdout)) {}

Output& Output::shared() {
    static Output& output = *new Output;
    return output;
}

void Output::add(std::string line) {
    Lock lock(mutex_);
    const std::size_t size = line.size() + 1;
    const bool isForSink = sink_ != nullptr;
    if (isForSink) {
        sinkLines_.push_back({sink_, std::move(line)});
        sinkWoken_.notifyOne();
    } else {
        lines_.push_back(std::move(line));
    }
    queued_ += size;
    lock.unlock();
    if (gathersHere) return;
    if (!isForSink) write();
    if (!isIdle()) callWaker();
}

void Output::callWaker() {
    if (auto* waker = waker_.load(std::memory_order_acquire)) waker();
}

void Output::setSink(Console::Output output) {
    auto sink = output ? std::make_shared<const Console::Output>(std::move(output)) : nullptr;
    const Lock lock(mutex_);  // Released before `sink`, which then holds the old one: host's code.
    if (sink && !sinkHasThread_) {
        startThread("kivo-output", [this] { serveSink(); });
        sinkHasThread_ = true;
    }
    sink_.swap(sink);
}

/// Calls the sink with no lock held: it may do what it likes, for as long as it likes.
void Output::serveSink() {
    for (;;) {
        LineForSink line = takeLineForSink();
        try {
            if (Process::isUsable()) (*line.sink)(line.text);
        } catch (...) {  // The host's own error.
        }
        line.sink.reset();
        if (noteSinkReturned(line.text.size() + 1)) callWaker();
    }
}

Output::LineForSink Output::takeLineForSink() {
    Lock lock(mutex_);
    while (sinkLines_.empty()) sinkWoken_.wait(lock);
    auto line = std::move(sinkLines_.front());
    sinkLines_.pop_front();
    sinkIsCalled_ = true;
    return line;
}

/// Returns whether work or a host may have waited for that.
bool Output::noteSinkReturned(std::size_t size) {
    const Lock lock(mutex_);
    const bool wasFull = isFull();
    queued_ -= size;
    sinkIsCalled_ = false;
    if (sinkIsDone()) sinkReturned_.notifyAll();
    return sinkIsDone() || (wasFull && !isFull());
}

void Output::write() noexcept {
    const Lock lock(mutex_);
    obstacle_ = {};
    if (isWritten()) return;
    const OutputSignals masked;
    if (ftrylockfile(stdout) != 0) {  // The host is printing, perhaps into a full pipe.
        obstacle_.milliseconds = retryMilliseconds;
        return;
    }
    writeLocked();
    funlockfile(stdout);
}

/// Writes to the descriptor, once what the host has left in the stream's buffer is out: lines stand
/// in order, and the stream's orientation stays the host's to choose.
void Output::writeLocked() noexcept try {
    const int descriptor = fileno_unlocked(stdout);
    const bool isOurs = descriptor < 0 || standardOutput_.isAt(descriptor);
    for (gather(); !batch_.empty(); gather()) {
        if (!isOurs) {
            forgetBatch();
        } else if (descriptor < 0) {
            writeThroughStream(batch_);
            forgetBatch();
        } else if (!flushHosts(descriptor) || !writeSome(descriptor)) {
            return;
        }
    }
} catch (...) {  // No memory: the lines go out later.
    obstacle_.milliseconds = retryMilliseconds;
}

/// As many lines as go out in one piece, or a single longer one.
void Output::gather() {
    if (!batch_.empty()) return;
    while (!lines_.empty() && (batch_.empty() || batch_.size() + lines_.front().size() < piece)) {
        batch_.reserve(batch_.size() + lines_.front().size() + 1);
        batch_ += lines_.front();
        batch_ += '\n';
        lines_.pop_front();
    }
}

/// Returns whether nothing of the host's is left to go before a line of ours. If the host's own
/// output cannot be written, ours is lost with it.
bool Output::flushHosts(int descriptor) {
    const std::size_t pending = written_ == 0 ? __fpending(stdout) : 0;
    if (pending == 0) return true;
    if (!hasRoom(descriptor, pending)) return false;
    if (fflush_unlocked(stdout) != 0 && __fpending(stdout) > 0) forgetBatch();
    return true;
}

/// Returns whether to go on. What cannot be written at all is lost.
bool Output::writeSome(int descriptor) {
    const std::size_t left = batch_.size() - written_;
    if (left == 0) return true;
    if (!hasRoom(descriptor, written_ == 0 ? left : 1)) return false;
    const ssize_t done = ::write(descriptor, batch_.data() + written_, std::min(left, piece));
    if (done < 0 && errno == EINTR) return true;
    if (done < 0 && errno == EAGAIN) {
        obstacle_.descriptor = descriptor;
        return false;
    }
    if (done < 0 || static_cast<std::size_t>(done) == left) {
        forgetBatch();
    } else {
        written_ += static_cast<std::size_t>(done);
    }
    return true;
}

/// Whether a text of `size` bytes can be begun without waiting. One that takes several pieces
/// begins only where all of them fit, so that nothing of the host's comes into the middle of a long
/// line.
bool Output::hasRoom(int descriptor, std::size_t size) {
    if (standardOutput_.isRegular()) return true;
    pollfd output{.fd = descriptor, .events = POLLOUT, .revents = 0};
    if (poll(&output, 1, 0) == 0) {
        obstacle_.descriptor = descriptor;
        return false;
    }
    if (size <= piece || takesWhole(descriptor, size)) return true;
    obstacle_.milliseconds = retryMilliseconds;
    return false;
}

void Output::forgetBatch() {
    queued_ -= batch_.size();
    batch_.clear();
    written_ = 0;
}

void Output::drain(Clock::time_point deadline) noexcept {
    for (write(); Clock::now() < deadline; write()) {
        const Obstacle what = obstacle();
        if (what.descriptor < 0 && what.milliseconds < 0) break;
        pollfd output{.fd = what.descriptor, .events = POLLOUT, .revents = 0};
        poll(&output, 1, retryMilliseconds);
    }
}

void Output::drainSink(Clock::time_point deadline) noexcept {
    Lock lock(mutex_);
    while (!sinkIsDone() && sinkReturned_.waitUntil(lock, deadline)) continue;
}

Output::Obstacle Output::obstacle() {
    const Lock lock(mutex_);
    return obstacle_;
}

}  // namespace kivo::platform
