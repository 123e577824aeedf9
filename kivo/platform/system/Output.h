#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include "kivo/platform/Console.h"
#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/system/OpenFile.h"

namespace kivo::platform {

/// The printed lines on their way out, in order. Writing to standard output never waits: lines that
/// it does not take stay queued. A host's own sink is called on a thread of its own, since it may
/// take its time. Any thread may call.
class Output {
public:
    /// Never destroyed. Its lines go to the standard output of the first call: if that descriptor
    /// is later closed or leads to another file, lines are lost rather than written to a file or
    /// connection of the host's.
    static Output& shared();

    /// Queues `line` and, unless the calling thread gathers, writes it at once, in order with what
    /// the host prints on that thread.
    void add(std::string line);

    /// Lines of the calling thread only queue from now on: that thread calls `write` itself.
    static void gatherOnThisThread() noexcept { gathersHere = true; }

    /// Has `waker` called when lines are left after a write, or when they no longer hold up work.
    void setWaker(void (*waker)()) noexcept { waker_ = waker; }

    /// Where later lines go instead of standard output, or empty. Throws, with nothing changed, if
    /// memory or threads run out.
    void setSink(Console::Output output);

    /// Writes as many lines as standard output takes without waiting.
    void write() noexcept;

    using Clock = std::chrono::steady_clock;

    /// Gives the lines for standard output until `deadline` to leave.
    void drain(Clock::time_point deadline) noexcept;

    /// The same for the lines that a sink has not yet taken.
    void drainSink(Clock::time_point deadline) noexcept;

    /// What holds up the queued lines.
    struct Obstacle {
        int descriptor = -1;    ///< Must become writable, or -1.
        int milliseconds = -1;  ///< Until the next attempt is worthwhile, or -1.
    };
    Obstacle obstacle();

    /// Whether so many bytes are queued that no work that may print should run.
    bool isFull() const noexcept { return queued_.load(std::memory_order_relaxed) > most; }

    /// Whether every line has left. Takes no lock, which a write to a slow disk may hold.
    bool isIdle() const noexcept { return queued_ == 0; }

private:
    static constexpr std::size_t most = 1U << 20U;

    struct LineForSink {
        std::shared_ptr<const Console::Output> sink;
        std::string text;
    };

    Output();

    void callWaker();
    void serveSink();
    LineForSink takeLineForSink() KIVO_EXCLUDES(mutex_);
    bool noteSinkReturned(std::size_t size) KIVO_EXCLUDES(mutex_);
    void writeLocked() noexcept KIVO_REQUIRES(mutex_);
    void gather() KIVO_REQUIRES(mutex_);
    bool flushHosts(int descriptor) KIVO_REQUIRES(mutex_);
    bool writeSome(int descriptor) KIVO_REQUIRES(mutex_);
    bool hasRoom(int descriptor, std::size_t size) KIVO_REQUIRES(mutex_);
    void forgetBatch() KIVO_REQUIRES(mutex_);
    bool isWritten() const KIVO_REQUIRES(mutex_) { return lines_.empty() && batch_.empty(); }
    bool sinkIsDone() const KIVO_REQUIRES(mutex_) { return sinkLines_.empty() && !sinkIsCalled_; }

    static inline thread_local bool gathersHere = false;

    const OpenFile standardOutput_;  // As it was at the beginning.
    std::atomic<void (*)()> waker_{nullptr};
    std::atomic<std::size_t> queued_{0};  // Bytes that have not left.

    Mutex mutex_;
    Condition sinkWoken_;
    Condition sinkReturned_;
    std::list<std::string> lines_ KIVO_GUARDED_BY(mutex_);
    std::string batch_ KIVO_GUARDED_BY(mutex_);  // Whole lines that are being written.
    std::size_t written_ KIVO_GUARDED_BY(mutex_) = 0;
    Obstacle obstacle_ KIVO_GUARDED_BY(mutex_);
    std::shared_ptr<const Console::Output> sink_ KIVO_GUARDED_BY(mutex_);
    std::list<LineForSink> sinkLines_ KIVO_GUARDED_BY(mutex_);
    bool sinkHasThread_ KIVO_GUARDED_BY(mutex_) = false;
    bool sinkIsCalled_ KIVO_GUARDED_BY(mutex_) = false;
};

}  // namespace kivo::platform
