#include "backend/admin/Report.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <stdexcept>

#include "backend/admin/HttpArchive.h"
#include "backend/admin/Records.h"
#include "backend/base/ExitStatus.h"
#include "backend/journal/RequestLine.h"

namespace kivo::backend {

namespace {

using nlohmann::json;

std::string textOf(const json& value) {
    return value.dump(2, ' ', true, json::error_handler_t::replace) + "\n";
}

std::string jsonReport(const Report& report) {
    json requests = json::array();
    for (const auto& entry : report.entries)
        requests.push_back(recordOf(entry, report.showSecrets));
    return textOf({{"program", report.program},
                   {"ending", report.ending},
                   {"exitStatus", report.exitStatus},
                   {"totals", recordOf(report.totals)},
                   {"requests", requests}});
}

std::string archiveReport(const Report& report) {
    return textOf(httpArchive(report.entries, report.showSecrets));
}

/// For an attribute in double quotes. Control characters have no form in XML 1.0.
std::string inXml(const std::string& text) {
    std::string safe;
    for (const char letter : text) {
        const bool control = static_cast<unsigned char>(letter) < ' ';
        if (letter == '&')
            safe += "&amp;";
        else if (letter == '<')
            safe += "&lt;";
        else if (letter == '"')
            safe += "&quot;";
        else
            safe += control ? '?' : letter;
    }
    return safe;
}

std::string testCase(const std::string& name, const std::string& failure) {
    const auto start = R"(  <testcase classname="kivo-dev" name=")" + inXml(name) + "\"";
    if (failure.empty()) return start + "/>\n";
    return start + ">\n    <failure message=\"" + inXml(failure) + "\"/>\n  </testcase>\n";
}

std::string requestName(const Entry& entry) {
    const auto& [request, reply, duration, delivered] = entry.exchange;
    return std::to_string(entry.number) + " " + printable(request.method) + " " +
           printable(request.path()) + " " + std::to_string(reply.status);
}

std::string junitReport(const Report& report) {
    const bool failed = report.exitStatus != exitStatus::success;
    std::size_t failures = failed ? 1 : 0;
    auto cases = testCase(report.program, failed ? "the program " + report.ending : "");
    for (const auto& entry : report.entries) {
        const bool broken = !entry.violations.empty();
        failures += broken ? 1 : 0;
        cases += testCase(requestName(entry), broken ? verdictOn(entry) : "");
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"kivo-dev\" tests=\"" +
           std::to_string(report.entries.size() + 1) + "\" failures=\"" + std::to_string(failures) +
           "\">\n" + cases + "</testsuite>\n";
}

}  // namespace

ReportWriter::ReportWriter(std::string file) : file_(std::move(file)) {
    if (file_.ends_with(".json")) format_ = jsonReport;
    if (file_.ends_with(".har")) format_ = archiveReport;
    if (file_.ends_with(".xml")) format_ = junitReport;
    if (!format_)
        throw std::invalid_argument(
            "--report takes a file that ends in .json, .har or .xml (JUnit), not \"" + file_ +
            "\"");
}

void ReportWriter::write(const Report& report) const {
    std::ofstream output(file_, std::ios::binary);
    output << format_(report) << std::flush;
    if (!output) throw std::runtime_error("cannot write the report " + file_);
}

}  // namespace kivo::backend
