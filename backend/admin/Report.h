#pragma once

#include <string>
#include <vector>

#include "backend/journal/Journal.h"
#include "backend/journal/Tally.h"

namespace kivo::backend {

/// What a report is about.
struct Report {
    std::vector<Entry> entries = {};  ///< The newest requests.
    Totals totals = {};
    std::string program = {};
    std::string ending = {};  ///< As in "ended with status 0".
    int exitStatus = 0;
    bool showSecrets = false;
};

/// Writes a report, whose format the file name's ending chooses: .json; .har, an HTTP Archive 1.2;
/// or .xml, JUnit test results with one case for each request and one for the program.
class ReportWriter {
public:
    /// Throws std::invalid_argument, with a message for the user, for any other ending.
    explicit ReportWriter(std::string file);

    /// Throws std::runtime_error, with a message for the user, if the file cannot be written.
    void write(const Report& report) const;

private:
    using Format = std::string (*)(const Report&);

    const std::string file_;
    Format format_ = nullptr;
};

}  // namespace kivo::backend
