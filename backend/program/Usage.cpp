#include "backend/program/Usage.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace kivo::backend {

namespace {

/// How many letters must be changed, inserted or removed.
std::size_t distanceBetween(const std::string& one, const std::string& other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < other.size(); ++j) {
            const auto changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

std::vector<std::string> namesIn(const CLI::App& command, bool options) {
    std::vector<std::string> names;
    for (const auto* each : command.get_subcommands({}))
        if (!options && !each->get_group().empty()) names.push_back(each->get_name());
    for (const auto* each : command.get_options())
        for (const auto& name : each->get_lnames())
            if (options) names.push_back("--" + name);
    return names;
}

/// As in: did you mean "serve"?
std::string suggestion(const CLI::App& command, const std::string& word) {
    const auto name = word.substr(0, word.find('='));
    std::string best;
    std::size_t nearest = name.size() / 3 + 2;
    for (const auto& known : namesIn(command, word.starts_with('-'))) {
        const bool begun = name.size() > 2 && known.starts_with(name);
        const auto distance = begun ? 0 : distanceBetween(name, known);
        if (distance < nearest) best = known;
        nearest = std::min(nearest, distance);
    }
    return best.empty() ? "" : "; did you mean " + best + "?";
}

std::string seeHelp(const CLI::App& command) {
    const auto path = pathOf(command);
    return "; see: kivo-dev help" + (path.empty() ? "" : " " + path);
}

/// The innermost command that was given.
const CLI::App& givenCommand(const CLI::App& program) {
    const auto given = program.get_subcommands();
    return given.empty() ? program : givenCommand(*given.back());
}

std::string listed(const CLI::App& command) {
    std::string text;
    for (const auto& name : namesIn(command, false)) text += (text.empty() ? "" : ", ") + name;
    return text;
}

/// The option or argument in the parser's "--port: 1 required TEXT missing", or in a message that
/// names it later.
std::string subjectOf(const std::string& message) {
    const auto option = message.find("--");
    const auto named = option == message.npos ? message : message.substr(option);
    return named.substr(0, named.find_first_of(":=, "));
}

/// What is wrong about an option or argument; empty where the parser's own words will do.
std::string mistakeIn(const CLI::ParseError& error, const std::string& message) {
    const auto has = [&](const char* text) { return message.find(text) != message.npos; };
    const auto subject = subjectOf(message);
    if (dynamic_cast<const CLI::RequiredError*>(&error)) return subject + " is missing";
    if (dynamic_cast<const CLI::ExcludesError*>(&error))
        return subject + " and" + message.substr(message.rfind(' ')) + " exclude each other";
    if (has("flag override")) return "--" + subject + " takes no value";
    if (!dynamic_cast<const CLI::ArgumentMismatch*>(&error)) return {};
    return subject +
           (has("received") || has(", got") ? " may be given only once" : " needs a value");
}

}  // namespace

std::string pathOf(const CLI::App& command) {
    const auto* parent = command.get_parent();
    if (!parent) return {};
    const auto above = pathOf(*parent);
    return above.empty() ? command.get_name() : above + " " + command.get_name();
}

std::invalid_argument unknownWord(const CLI::App& command, const std::string& word) {
    const auto path = pathOf(command);
    const auto subject = path.empty() ? std::string("there") : path;
    const auto* verb = path.empty() ? " is no " : " has no ";
    const auto* kind = word.starts_with('-') ? "option " : "command ";
    if (!word.starts_with('-') && listed(command).empty())
        return std::invalid_argument(path + " takes no further \"" + word + "\"" +
                                     seeHelp(command));
    const auto advice = suggestion(command, word);
    return std::invalid_argument(subject + verb + kind + word +
                                 (advice.empty() ? seeHelp(command) : advice));
}

std::invalid_argument usageErrorFrom(const CLI::ParseError& error, const CLI::App& program) {
    const auto& command = givenCommand(program);
    const std::string message = error.what();
    const bool isMissing = dynamic_cast<const CLI::RequiredError*>(&error);
    const auto left = program.remaining(true);
    if (!left.empty() && (isMissing || dynamic_cast<const CLI::ExtrasError*>(&error)))
        return unknownWord(command, left.front());
    if (isMissing && message.starts_with("A subcommand"))
        return std::invalid_argument("the command is missing; choose one of " + listed(command) +
                                     seeHelp(command));
    const auto mistake = mistakeIn(error, message);
    return std::invalid_argument(mistake.empty() ? message : mistake + seeHelp(command));
}

}  // namespace kivo::backend
