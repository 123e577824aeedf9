#include <fnmatch.h>

#include <fstream>
#include <regex>
#include <set>

#include "backend/desk/Desk.h"
#include "backend/faults/FaultKinds.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using Lines = std::vector<std::string>;

const std::string ellipsis = "…";

/// One row of the page that tells integrators what the SDK prints when a fault befalls it.
struct Row {
    Lines rules;
    std::string operation;
    Lines atOnce;
    Lines afterThirtySeconds;
};

/// What stands between backquotes.
Lines quotedIn(const std::string& cell) {
    static const std::regex quoted("`([^`]*)`");
    return {std::sregex_token_iterator(cell.begin(), cell.end(), quoted, 1), {}};
}

std::vector<Row> rowsOfThePage() {
    static const std::regex fourCells(R"(\| (`.*) \| (`.*) \|(.*) \|(.*)\|)");
    std::vector<Row> rows;
    std::ifstream page(KIVO_FAULTS_PAGE);
    std::smatch cells;
    for (std::string line; std::getline(page, line);) {
        if (!line.starts_with("| `")) continue;
        if (!std::regex_match(line, cells, fourCells))
            throw std::runtime_error("not a row: " + line);
        rows.push_back(
            {quotedIn(cells[1]), quotedIn(cells[2]).at(0), quotedIn(cells[3]), quotedIn(cells[4])});
    }
    return rows;
}

void PrintTo(const Row& row, std::ostream* stream) { *stream << row.rules.at(0); }

std::string nameOf(const testing::TestParamInfo<Row>& row) {
    auto name = std::to_string(100 + row.index) + "_" + row.param.operation;
    for (const auto& rule : row.param.rules) name += "_" + rule;
    if (!row.param.afterThirtySeconds.empty()) name += "_ThirtySeconds";
    return std::regex_replace(name, std::regex("[^A-Za-z0-9]"), "_");
}

std::string startOf(const std::string& line) { return line.substr(0, line.find(ellipsis)); }

/// Whether a printed line and one of the page, whose ellipses stand for any text, agree.
MATCHER(AgreesWithThePage, "") {
    const auto& [printed, written] = arg;
    const auto glob = std::regex_replace(written, std::regex(ellipsis), "*");
    return fnmatch(glob.c_str(), printed.c_str(), FNM_NOESCAPE) == 0;
}

class FaultTableTest : public FrameworkTest, public testing::WithParamInterface<Row> {
protected:
    FaultTableTest() {
        std::ofstream(home().path() / "desk.pem") << authority_.certificate();
        set("SSL_CERT_FILE", home().path() / "desk.pem");
        desk_.open();
        set("https_proxy", "http://127.0.0.1:" + std::to_string(desk_.port()));
    }

    /// Everything goes well up to the operation, and the faults befall it alone.
    auto& operateAmidFaults() {
        const auto& [rules, operation, atOnce, later] = GetParam();
        for (const std::string step : {"initialise", "setUser"}) {
            if (step == operation) break;
            run(step);
            settle();
        }
        for (const auto& rule : rules) desk_.addFault(backend::parseFault(rule));
        output().take();
        run(operation);
        return output();
    }

    void run(std::string_view operation) {
        const auto plugin = KivoSDK::instance();
        if (operation == "initialise") KivoSDK::initialise({.apiKey = "key"});
        if (operation == "setUser") plugin->setUser("40", "711", "ana@example.com", "Ana");
        if (operation == "updateDeviceToken") plugin->updateDeviceToken("push-token");
        if (operation == "setNotificationPermission") plugin->setNotificationPermission(true);
        if (operation == "unsetUser") plugin->unsetUser();
        if (operation == "onMessageReceived")
            plugin->onMessageReceived({{"notification", {{"image", desk_.baseUrl() + "img/a"}}}});
    }

private:
    const backend::Authority authority_ = backend::Authority::make();
    backend::Desk desk_{{.identity = authority_.issue(backend::loopbackHosts())},
                        [](const backend::Entry&) {}};
};

TEST_P(FaultTableTest, PrintsWhatThePageSays) {
    const auto& [rules, operation, atOnce, later] = GetParam();
    if (atOnce.size() == 1 && atOnce[0].starts_with("Fatal error: ")) {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        EXPECT_DEATH(operateAmidFaults().awaitLine("the end"), atOnce[0]);
        return;
    }
    auto& output = operateAmidFaults();
    for (const auto& line : atOnce) output.awaitLine(startOf(line));
    for (const auto& line : later) {
        EXPECT_THAT(output.lines(startOf(line)), testing::IsEmpty());
        output.awaitLine(startOf(line), std::chrono::seconds(30));
    }
    if (later.empty()) settle();
    auto printed = output.lines();
    std::erase_if(printed, [](const auto& line) { return line.starts_with("url-is: "); });
    auto written = atOnce;
    if (std::erase(written, ellipsis) > 0)  // Alone it stands for any lines.
        printed.erase(printed.begin() + std::ssize(written), printed.end() - std::ssize(later));
    written.insert(written.end(), later.begin(), later.end());
    EXPECT_THAT(printed, testing::Pointwise(AgreesWithThePage(), written));
    settle();
}

INSTANTIATE_TEST_SUITE_P(Page, FaultTableTest, testing::ValuesIn(rowsOfThePage()), nameOf);

TEST(FaultPageTest, HasARowForEveryKind) {
    std::set<std::string, std::less<>> kinds;
    for (const auto& row : rowsOfThePage())
        for (const auto& rule : row.rules) kinds.insert(backend::parseFault(rule).kind);
    for (const auto& kind : backend::faultKinds()) EXPECT_TRUE(kinds.contains(kind.name));
}

}  // namespace

}  // namespace kivo::tests
