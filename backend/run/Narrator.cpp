#include "backend/run/Narrator.h"

#include <fcntl.h>

#include <stdexcept>
#include <system_error>

#include "backend/journal/LineColours.h"

namespace kivo::backend {

namespace {

constexpr ::mode_t ownerOnly = 0600;

FileDescriptor openLog(const std::string& file) try {
    return {open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, ownerOnly),
            file};
} catch (const std::system_error& error) {
    throw std::runtime_error("cannot write the log " + std::string(error.what()));
}

}  // namespace

Narrator::Narrator(Output& output, bool quiet, const std::optional<std::string>& logFile)
    : output_(output), quiet_(quiet) {
    if (logFile) log_.emplace(openLog(*logFile));
}

void Narrator::tell(const std::string& lines) const {
    if (!quiet_) output_.show(lines);
}

/// A full disk loses lines of the log and nothing else.
void Narrator::log(const std::string& line) const {
    if (!log_) return tell("backend | " + forOutput(line));
    try {
        log_->write(line);
    } catch (const std::system_error&) {
        return;
    }
}

}  // namespace kivo::backend
