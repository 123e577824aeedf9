#include "backend/program/Pages.h"

#include <fstream>
#include <stdexcept>
#include <vector>

#include "backend/program/Usage.h"

namespace kivo::backend {

namespace {

/// Troff takes a backslash as an escape, a dot or quote at a line's start as a request, and "-" as
/// a hyphen that cannot be pasted into a shell.
std::string troff(const std::string& text) {
    std::string safe;
    for (const char letter : text) {
        const bool lineStart = safe.empty() || safe.back() == '\n';
        if (lineStart && (letter == '.' || letter == '\'')) safe += "\\&";
        if (letter == '\\')
            safe += "\\e";
        else if (letter == '-')
            safe += "\\-";
        else
            safe += letter;
    }
    return safe;
}

std::vector<const CLI::App*> commandsIn(const CLI::App& command) {
    std::vector<const CLI::App*> shown;
    for (const auto* each : command.get_subcommands({}))
        if (!each->get_group().empty()) shown.push_back(each);
    return shown;
}

/// As in "--port UINT" or "RULE".
std::string formOf(const CLI::Option& option) {
    const auto value = option.get_items_expected_max() > 0 ? option.get_type_name() : "";
    const auto name = option.get_name(false, true);
    return option.get_positional() || value.empty() ? name : name + " " + value;
}

std::string sentence(std::string text) {
    return text.ends_with('.') || text.empty() ? text : text + ".";
}

std::string optionEntry(const CLI::Option& option) {
    auto text = sentence(option.get_description());
    if (const auto value = option.get_default_str(); !value.empty())
        text += " The default is " + value + ".";
    return ".TP\n.B " + troff(formOf(option)) + "\n" + troff(text) + "\n";
}

std::string optionEntries(const CLI::App& command) {
    std::string text;
    for (const auto* option : command.get_options())
        if (option->get_name() != "--help" && !option->get_group().empty())
            text += optionEntry(*option);
    return text;
}

/// The footer is shown where it belongs to several commands; the help of each repeats it, as it
/// does that of the command above, which is shown elsewhere.
std::string commandEntries(const CLI::App& command) {
    std::string text;
    for (const auto* each : commandsIn(command)) {
        const auto nested = commandEntries(*each);
        text += nested;
        if (nested.empty())
            text += ".SS kivo\\-dev " + troff(pathOf(*each)) + "\n" +
                    troff(sentence(each->get_description())) + "\n" + optionEntries(*each);
        else if (each->get_footer() != command.get_footer())
            text += ".PP\n.nf\n" + troff(each->get_footer()) + ".fi\n";
    }
    return text;
}

std::string wordsAfter(const CLI::App& command) {
    std::string words;
    for (const auto* each : commandsIn(command)) words += " " + each->get_name();
    for (const auto* option : command.get_options())
        for (const auto& name : option->get_lnames()) words += " --" + name;
    return words.substr(words.empty() ? 0 : 1);
}

/// One case of the shell's "case": a command and the words that can follow it.
std::string completionCases(const CLI::App& command) {
    auto text = "        \"" + pathOf(command) + "\") words=\"" + wordsAfter(command) + "\" ;;\n";
    for (const auto* each : commandsIn(command)) text += completionCases(*each);
    return text;
}

void write(const std::filesystem::path& file, const std::string& text) {
    std::ofstream output(file, std::ios::binary);
    output << text << std::flush;
    if (!output) throw std::runtime_error("cannot write " + file.string());
}

/// The program's footer without its title.
std::string exitStatuses(const CLI::App& program) {
    const auto text = program.get_footer();
    return text.substr(text.find('\n') + 1);
}

}  // namespace

std::string manPage(const CLI::App& program) {
    return ".TH KIVO\\-DEV 1 \"\" \"Kivo " KIVO_DEV_VERSION
           "\"\n.SH NAME\nkivo\\-dev \\- a development backend for applications with Kivo\n"
           ".SH SYNOPSIS\n.B kivo\\-dev run \\-\\-\n.I PROGRAM ARGS\n.br\n.B kivo\\-dev "
           "serve\n.br\n"
           ".B kivo\\-dev\n.I COMMAND\n.SH DESCRIPTION\n" +
           troff(sentence(program.get_description())) + "\n.SH COMMANDS\n" +
           commandEntries(program) + ".SH EXIT STATUS\n.nf\n" + troff(exitStatuses(program)) +
           ".fi\n.SH ENVIRONMENT\n.TP\n.B KIVO_DEV_ADMIN_PORT\nThe admin port of the running "
           "backend.\n.TP\n.B NO_COLOR\nSet, it keeps colours out of request lines, which have "
           "them "
           "on a terminal only.\n";
}

std::string bashCompletion(const CLI::App& program) {
    return R"(# bash completion for kivo-dev
_kivo_dev() {
    local word path="" words=""
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ "$word" == -- ]] && return
        [[ "$word" == [a-z]* ]] && path="${path:+$path }$word"
    done
    while :; do
        case "$path" in
)" + completionCases(program) +
           R"(        *" "*) path="${path% *}"; continue ;;
        esac
        break
    done
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -o default -F _kivo_dev kivo-dev
)";
}

void writePages(const CLI::App& program, const std::filesystem::path& folder) {
    write(folder / "kivo-dev.1", manPage(program));
    write(folder / "kivo-dev.bash", bashCompletion(program));
}

}  // namespace kivo::backend
