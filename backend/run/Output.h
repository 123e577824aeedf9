#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <thread>

#include "backend/base/Mutex.h"

namespace kivo::backend {

/// Writes to standard output and standard error on a thread of its own, so that a reader that
/// stalls never stops the backend. May be used from any thread.
class Output {
public:
    enum class Stream { output, errors };

    /// How long a process that was told to end waits for a reader that stalls.
    static constexpr std::chrono::seconds exitGrace{1};

    Output();
    ~Output();

    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// Shows whole lines of our own. Never waits: if the reader is far behind, they are dropped,
    /// and later lines say how many were.
    void show(std::string lines);

    /// Hands on a program's text, and waits while the reader is far behind. `continues`: the text
    /// goes on with the unfinished line that this stream showed last.
    void handOn(Stream stream, std::string text, bool continues);

    /// Whether what this stream showed last is an unfinished line that nothing has followed yet.
    bool isAtUnfinishedLine(Stream stream) const;

    /// Waits until everything has been written.
    void finish();

private:
    struct Piece {
        Stream stream;
        std::string text;
    };
    /// The last thing shown, on a terminal or file of both streams or of one.
    struct Line {
        Stream owner = Stream::output;
        bool unfinished = false;
    };

    Line& lineOf(Stream stream) KIVO_BACKEND_REQUIRES(mutex_);
    void push(Stream stream, std::string text, bool continues) KIVO_BACKEND_REQUIRES(mutex_);
    void write();

    const bool sameFile_;
    mutable Mutex mutex_;
    std::condition_variable_any changed_;
    std::deque<Piece> pieces_ KIVO_BACKEND_GUARDED_BY(mutex_);
    std::size_t waiting_ KIVO_BACKEND_GUARDED_BY(mutex_) = 0;
    std::size_t dropped_ KIVO_BACKEND_GUARDED_BY(mutex_) = 0;
    std::array<Line, 2> lines_ KIVO_BACKEND_GUARDED_BY(mutex_) = {};
    bool ends_ KIVO_BACKEND_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};

}  // namespace kivo::backend
