#include "benchmarks/OutcomeLines.h"

#include <unistd.h>

#include <cstdio>

#include "benchmarks/Workload.h"

namespace kivo::benchmarks {

void OutcomeLines::await() {
    constexpr std::chrono::minutes patience{1};
    if (!instance().ended_.try_acquire_for(patience)) giveUp("no operation has ended for a minute");
}

void OutcomeLines::await(int operations) {
    for (int count = 0; count < operations; ++count) await();
}

void OutcomeLines::take(std::string_view piece) {
    std::string& line = instance().begun_;
    for (auto end = piece.find('\n'); end != piece.npos; end = piece.find('\n')) {
        line.append(piece.substr(0, end));
        judge(line);
        line.clear();
        piece.remove_prefix(end + 1);
    }
    line.append(piece);
}

void OutcomeLines::judge(const std::string& line) {
    if (line.starts_with("Failed")) giveUp(line);
    if (line.find(" successfully: Optional(") != line.npos) instance().ended_.release();
}

/// Never destroyed: lines may still come while the process ends.
OutcomeLines& OutcomeLines::instance() {
    static OutcomeLines& shared = *new OutcomeLines;
    return shared;
}

}  // namespace kivo::benchmarks

using kivo::benchmarks::OutcomeLines;

// The linker's --wrap gives Kivo's calls these names, and the C library's functions the __real
// ones.
extern "C" {

std::size_t __real_fwrite_unlocked(const void*, std::size_t, std::size_t, std::FILE*);
ssize_t __real_write(int, const void*, std::size_t);

std::size_t __wrap_fwrite_unlocked(const void* bytes, std::size_t size, std::size_t count,
                                   std::FILE* stream) {
    const std::size_t written = __real_fwrite_unlocked(bytes, size, count, stream);
    if (stream == stdout) OutcomeLines::take({static_cast<const char*>(bytes), size * written});
    return written;
}

ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t size) {
    const ssize_t written = __real_write(descriptor, bytes, size);
    if (descriptor == STDOUT_FILENO && written > 0)
        OutcomeLines::take({static_cast<const char*>(bytes), static_cast<std::size_t>(written)});
    return written;
}

}  // extern "C"
