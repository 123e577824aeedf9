#include "backend/run/Output.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace kivo::backend {

namespace {

constexpr std::size_t enough = 1024 * 1024;

bool areSameFile(int one, int other) {
    struct stat first{};
    struct stat second{};
    return fstat(one, &first) == 0 && fstat(other, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

/// What cannot be written is lost: nobody is left to read it.
void writeAll(int file, std::string_view text) {
    while (!text.empty()) {
        const auto written = ::write(file, text.data(), text.size());
        if (written < 0 && errno != EINTR) return;
        if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
    }
}

int fileOf(Output::Stream stream) {
    return stream == Output::Stream::output ? STDOUT_FILENO : STDERR_FILENO;
}

std::string lossLine(std::size_t lines) {
    return "kivo-dev: " + std::to_string(lines) + (lines == 1 ? " line was" : " lines were") +
           " not shown, since the reader of this output is too slow\n";
}

}  // namespace

Output::Output()
    : sameFile_(areSameFile(STDOUT_FILENO, STDERR_FILENO)), thread_([this] { write(); }) {}

Output::~Output() {
    {
        const Lock lock(mutex_);
        ends_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

Output::Line& Output::lineOf(Stream stream) {
    return lines_[sameFile_ ? 0 : static_cast<std::size_t>(stream)];
}

/// Ends an unfinished line first, if this text does not belong to it.
void Output::push(Stream stream, std::string text, bool continues) {
    auto& line = lineOf(stream);
    if (line.unfinished && !continues) text.insert(0, "\n");
    line = {.owner = stream, .unfinished = !text.ends_with('\n')};
    waiting_ += text.size();
    pieces_.push_back({.stream = stream, .text = std::move(text)});
    changed_.notify_all();
}

void Output::show(std::string lines) {
    const Lock lock(mutex_);
    if (waiting_ >= enough) {
        ++dropped_;
        return;
    }
    if (dropped_ > 0) lines.insert(0, lossLine(std::exchange(dropped_, 0)));
    push(Stream::output, std::move(lines), false);
}

void Output::handOn(Stream stream, std::string text, bool continues) {
    mutex_.lock();
    while (waiting_ >= enough) changed_.wait(mutex_);
    push(stream, std::move(text), continues);
    mutex_.unlock();
}

bool Output::isAtUnfinishedLine(Stream stream) const {
    const Lock lock(mutex_);
    const auto& line = lines_[sameFile_ ? 0 : static_cast<std::size_t>(stream)];
    return line.unfinished && line.owner == stream;
}

void Output::finish() {
    mutex_.lock();
    if (dropped_ > 0) push(Stream::output, lossLine(std::exchange(dropped_, 0)), false);
    while (waiting_ > 0) changed_.wait(mutex_);
    mutex_.unlock();
}

void Output::write() {
    pthread_setname_np(pthread_self(), "kivo-output");
    mutex_.lock();
    for (;;) {
        while (pieces_.empty() && !ends_) changed_.wait(mutex_);
        if (pieces_.empty()) break;
        const auto piece = std::move(pieces_.front());
        pieces_.pop_front();
        mutex_.unlock();
        writeAll(fileOf(piece.stream), piece.text);
        mutex_.lock();
        waiting_ -= piece.text.size();
        changed_.notify_all();
    }
    mutex_.unlock();
}

}  // namespace kivo::backend
