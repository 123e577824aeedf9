#pragma once

#include <optional>
#include <string>

#include "backend/base/FileDescriptor.h"
#include "backend/run/Output.h"

namespace kivo::backend {

/// Tells the user what happens: about the run on standard output, unless it is quiet, and about
/// requests there or in a log file. May be used from any thread.
class Narrator {
public:
    /// Throws std::runtime_error, with a message for the user, if the log cannot be opened.
    Narrator(Output& output, bool quiet, const std::optional<std::string>& logFile);

    /// Whole lines about the run.
    void tell(const std::string& lines) const;

    /// A whole line about a request or connection.
    void log(const std::string& line) const;

private:
    Output& output_;
    const bool quiet_;
    std::optional<FileDescriptor> log_;
};

}  // namespace kivo::backend
