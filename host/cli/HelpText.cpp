#include "HelpText.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>
#include <sstream>

namespace lumo::cli {

namespace {

constexpr size_t kMeaningColumn = 26;
constexpr char kContinuation[] = " \\";
constexpr char kContinuedIndent[] = "      ";

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

// An option stays with its value.
std::vector<std::string> argumentsOf(const std::string& command) {
    std::vector<std::string> arguments;
    for (const std::string& word : wordsOf(command)) {
        if (!arguments.empty() && arguments.back()[0] == '-' && word[0] != '-' &&
            arguments.back().find(' ') == std::string::npos) {
            arguments.back() += " " + word;
        } else {
            arguments.push_back(word);
        }
    }
    return arguments;
}

// Fills lines with words. `text` is what stands there already; `end` closes a line that goes on.
std::string fill(const std::string& text, const std::vector<std::string>& words,
                 const std::string& indent, size_t columns = kHelpColumns,
                 const std::string& end = "") {
    std::string filled = text;
    size_t column = text.size();
    bool first = true;
    const std::string next_line = end + "\n" + indent;
    for (const std::string& word : words) {
        if (!first && column + 1 + word.size() + end.size() > columns) {
            filled += next_line;
            column = indent.size();
            first = true;
        }
        filled += (first ? "" : " ") + word;
        column += (first ? 0 : 1) + word.size();
        first = false;
    }
    return filled;
}

std::string indentOf(const std::string& line) {
    return line.substr(0, std::min(line.find_first_not_of(' '), line.size()));
}

// One entry of a list: what it is in the first column, its meaning in the second.
std::string entry(const std::string& name, const std::string& meaning) {
    const std::string indent(kMeaningColumn, ' ');
    std::string left = "  " + name;
    if (left.size() + 2 > kMeaningColumn) {
        return fill("  ", wordsOf(name), indent) + "\n" + fill(indent, wordsOf(meaning), indent) +
               "\n";
    }
    left.resize(kMeaningColumn, ' ');
    return fill(left, wordsOf(meaning), indent) + "\n";
}

// The form of a value: the words that are allowed, where a list of them was given.
std::string valueForm(const CLI::Option& option) {
    std::string form = option.get_type_name();
    const size_t members = form.find(":{");
    if (members != std::string::npos) {
        form = form.substr(members + 2, form.find('}') - members - 2);
        std::replace(form.begin(), form.end(), ',', '|');
    }
    return form == "INT" || form == "UINT" ? "N" : form;
}

std::string listOf(const CLI::App& app, const std::string& group) {
    std::string list;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_group() == group) list += entry(syntaxOf(*option), meaningOf(*option));
    }
    return list.empty() ? "" : "\n" + group + ":\n" + list;
}

}  // namespace

std::string syntaxOf(const CLI::Option& option) {
    std::string names = option.get_name(option.get_positional(), true);
    if (option.get_items_expected_max() == 0) return names;
    const std::string form = valueForm(option);
    return names + (form.empty() ? "" : " " + form);
}

std::string meaningOf(const CLI::Option& option) {
    std::string meaning = option.get_description();
    if (option.get_required()) meaning += " (required)";
    if (option.get_items_expected_max() > 0 && !option.get_default_str().empty()) {
        meaning += " (default: " + option.get_default_str() + ")";
    }
    for (const CLI::Option* other : option.get_excludes()) {
        meaning += " (not with " + other->get_name() + ")";
    }
    return meaning;
}

std::string usageOf(const CLI::App& app) {
    std::string usage = "[OPTION]...";
    if (!app.get_subcommands({}).empty()) usage += " COMMAND";
    for (const CLI::Option* option : app.get_options()) {
        if (!option->get_positional()) continue;
        const std::string name = option->get_name(true);
        usage += option->get_required() ? " " + name : " [" + name + "]";
        if (option->get_items_expected_max() > 1) usage += "...";
    }
    return usage;
}

std::string inColumns(const std::string& notes, size_t columns) {
    std::string text;
    std::string paragraph;
    const auto end_paragraph = [&] {
        if (!paragraph.empty()) text += fill("", wordsOf(paragraph), "", columns) + "\n";
        paragraph.clear();
    };
    std::istringstream in(notes);
    for (std::string line; std::getline(in, line);) {
        const std::string indent = indentOf(line);
        if (indent.empty() && !line.empty()) {
            paragraph += line + "\n";
            if (line.back() == ':') end_paragraph();
            continue;
        }
        end_paragraph();
        text += line.size() <= columns
                    ? line
                    : fill(indent, argumentsOf(line), kContinuedIndent, columns, kContinuation);
        text += "\n";
    }
    end_paragraph();
    return text;
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string name,
                                     CLI::AppFormatMode /*mode*/) const {
    std::string help = app->get_description() + "\nUsage: " + name + " " + usageOf(*app) + "\n";
    for (const std::string& group : app->get_groups()) help += listOf(*app, group);
    return help + make_subcommands(app, CLI::AppFormatMode::Normal) + "\n" +
           inColumns(app->get_footer());
}

std::string HelpFormatter::make_subcommand(const CLI::App* sub) const {
    return entry(sub->get_name(), sub->get_description());
}

}  // namespace lumo::cli
