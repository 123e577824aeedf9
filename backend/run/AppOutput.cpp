#include "backend/run/AppOutput.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <string_view>

namespace kivo::backend {

namespace {

using SteadyClock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds longestPause(100);
constexpr std::size_t longestPart = 64 * 1024;
/// Where another line came between the parts of a long one.
constexpr const char* rest = "(rest of a long line) ";

/// One of the program's pipes.
class AppPipe {
public:
    AppPipe(ChildProcess& child, Output::Stream stream, Output& output)
        : child_(child), stream_(stream), output_(output) {}

    /// poll(2) skips a pipe that has ended.
    pollfd pollEntry() const { return {.fd = open_ ? pipe() : -1, .events = POLLIN, .revents = 0}; }

    /// Our own end of the stream: reports an error once its reader has left.
    pollfd readerEntry() const { return {.fd = open_ ? file() : -1, .events = 0, .revents = 0}; }

    /// The program's next write then fails as it would without us.
    void readerLeft() {
        open_ = false;
        child_.close(file());
    }

    /// Reads only what is available now: the program may never stop printing.
    void drain() {
        int waiting = 0;
        if (open_) ioctl(pipe(), FIONREAD, &waiting);
        std::string piece(static_cast<std::size_t>(std::max(waiting, 1)), '\0');
        const auto size = open_ ? read(pipe(), piece.data(), piece.size()) : 0;
        if (size < 0) return;
        open_ = open_ && size > 0;
        add(std::string_view(piece).substr(0, static_cast<std::size_t>(size)));
    }

    /// How long to wait before an unfinished line is shown, in milliseconds; -1 if there is none.
    int patience() const {
        if (unfinished_.empty()) return -1;
        const auto left = since_ + longestPause - SteadyClock::now();
        return std::max<int>(
            0, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count()));
    }

    void showUnfinished() {
        if (patience() == 0) show();
    }

    void finish() {
        drain();
        const bool begun = !unfinished_.empty() || output_.isAtUnfinishedLine(stream_);
        unfinished_ += begun ? "\n" : "";
        show();
    }

private:
    int file() const { return stream_ == Output::Stream::output ? STDOUT_FILENO : STDERR_FILENO; }
    int pipe() const {
        return (stream_ == Output::Stream::output ? child_.output() : child_.errors()).number();
    }

    void add(std::string_view piece) {
        for (auto end = piece.find('\n'); end != piece.npos; end = piece.find('\n')) {
            unfinished_.append(piece.substr(0, end + 1));
            show();
            piece.remove_prefix(end + 1);
        }
        if (unfinished_.empty()) since_ = SteadyClock::now();
        unfinished_.append(piece);
        if (unfinished_.size() <= longestPart) return;
        show();
        cut_ = true;
    }

    void show() {
        if (unfinished_.empty()) return;
        const bool continues = output_.isAtUnfinishedLine(stream_);
        const auto* origin = stream_ == Output::Stream::output ? "app     | " : "app err | ";
        const std::string start = continues ? "" : origin;
        output_.handOn(stream_, start + (cut_ && !continues ? rest : "") + unfinished_, continues);
        cut_ = cut_ && !unfinished_.ends_with('\n');
        unfinished_.clear();
    }

    ChildProcess& child_;
    const Output::Stream stream_;
    Output& output_;
    std::string unfinished_;
    SteadyClock::time_point since_;
    bool open_ = true;
    bool cut_ = false;  ///< The line goes on after a part that was too long to wait for its end.
};

/// The shorter of two waits, of which -1 has no end.
int shorter(int one, int other) {
    if (one < 0 || other < 0) return std::max(one, other);
    return std::min(one, other);
}

}  // namespace

void showOutputOf(ChildProcess& child, const FileDescriptor& ended, Output& output) {
    AppPipe lines(child, Output::Stream::output, output);
    AppPipe errors(child, Output::Stream::errors, output);
    pollfd end{.fd = ended.number(), .events = POLLIN, .revents = 0};
    while (end.revents == 0) {
        std::array entries{lines.pollEntry(), errors.pollEntry(), lines.readerEntry(),
                           errors.readerEntry(), end};
        const int patience = shorter(lines.patience(), errors.patience());
        if (poll(entries.data(), entries.size(), patience) < 0) continue;
        if (entries[2].revents & POLLERR) lines.readerLeft();
        if (entries[3].revents & POLLERR) errors.readerLeft();
        for (auto* pipe : {&lines, &errors}) {
            pipe->drain();
            pipe->showUnfinished();
        }
        end = entries.back();
    }
    lines.finish();
    errors.finish();
}

}  // namespace kivo::backend
