#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <semaphore>
#include <string_view>

#include "benchmarks/Workload.h"

namespace kivo::benchmarks {

/// Standard output as a host's log file, which also tells of the lines that end an operation. Kivo
/// prints as it always does and knows nothing of it.
class OutcomeLines {
public:
    OutcomeLines() {
        cookie_io_functions_t functions{};
        functions.write = write;
        stdout = fopencookie(this, "w", functions);
    }

    void await() { ended_.acquire(); }

private:
    static ssize_t write(void* lines, const char* text, std::size_t size) {
        const std::string_view line(text, size);
        if (line.find(" successfully: Optional(") != std::string_view::npos)
            static_cast<OutcomeLines*>(lines)->ended_.release();
        if (line.starts_with("Failed")) giveUp(std::string(line));
        return write(STDOUT_FILENO, text, size);
    }

    std::counting_semaphore<> ended_{0};
};

}  // namespace kivo::benchmarks
