#include "ManPage.h"

#include <algorithm>
#include <sstream>

#include "HelpText.h"
#include "Version.h"

namespace lumo::manual {

namespace {

constexpr size_t kTextColumns = 72;  // of a terminal, less the indents
constexpr char kPackage[] = "lumokeymaster4";

// Text as it is to be seen: a backslash and a hyphen mean something else to the formatter, as does
// a line that begins with a point or an apostrophe.
std::string plain(const std::string& text) {
    std::string escaped;
    for (const char character : text) {
        if (character == '\\') {
            escaped += "\\e";
        } else if (character == '-') {
            escaped += "\\-";
        } else {
            escaped += character;
        }
    }
    const bool is_request = !escaped.empty() && (escaped[0] == '.' || escaped[0] == '\'');
    return is_request ? "\\&" + escaped : escaped;
}

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return static_cast<char>(toupper(character)); });
    return text;
}

// A one-line description, as the index of all pages wants it.
std::string summaryOf(const CLI::App& app) {
    std::string summary = app.get_description();
    const size_t colon = summary.find(": ");
    if (colon != std::string::npos) summary.erase(0, colon + 2);
    if (!summary.empty() && summary.back() == '.') summary.pop_back();
    return plain(summary);
}

// "Examples:" where the notes begin a part of their own; empty elsewhere.
std::string titleOf(const std::string& line) {
    for (const char* title : {"Example", "Examples", "Environment", "Exit status"}) {
        if (line == std::string(title) + ":") return upperCase(title);
    }
    return "";
}

// The notes of an application, cut into its description and titled sections.
class Notes {
  public:
    explicit Notes(const std::string& notes) {
        std::istringstream in(notes);
        for (std::string line; std::getline(in, line);) add(line);
        endTable();
    }

    const std::string& description() const { return description_; }
    const std::string& sections() const { return sections_; }

  private:
    void add(const std::string& line) {
        const std::string title = titleOf(line);
        const bool indented = !line.empty() && line[0] == ' ';
        if (!indented) endTable();
        if (!title.empty()) {
            sections_ += ".SH " + title + "\n";
            into_ = &sections_;
        } else if (line.empty()) {
            into_ = &description_;
            *into_ += ".PP\n";
        } else if (indented) {
            if (!in_table_) *into_ += into_ == &sections_ ? ".EX\n" : ".PP\n.EX\n";
            in_table_ = true;
            *into_ += plain(line) + "\n";
        } else {
            *into_ += plain(line) + "\n";
        }
    }

    void endTable() {
        if (in_table_) *into_ += ".EE\n";
        in_table_ = false;
    }

    std::string description_;
    std::string sections_;
    std::string* into_ = &description_;
    bool in_table_ = false;
};

// Of the paragraphs that follow one another without text.
std::string withoutEmptyParagraphs(const std::string& text) {
    std::string kept;
    std::istringstream in(text);
    bool pending = false;
    for (std::string line; std::getline(in, line);) {
        if (line == ".PP") {
            pending = true;
            continue;
        }
        if (pending && !kept.empty() && line.rfind(".SH", 0) != 0) kept += ".PP\n";
        pending = false;
        kept += line + "\n";
    }
    return kept;
}

std::string optionsOf(const CLI::App& app) {
    std::string list;
    for (const std::string& group : app.get_groups()) {
        std::string entries;
        for (const CLI::Option* option : app.get_options()) {
            if (option->get_group() != group) continue;
            std::string syntax = cli::syntaxOf(*option);
            const size_t comma = syntax.find(',');
            if (syntax[0] == '-' && comma != std::string::npos && syntax[comma + 1] == '-') {
                syntax.insert(comma + 1, " ");
            }
            entries += ".TP\n.B ";
            entries += plain(syntax) + "\n";
            entries += plain(cli::meaningOf(*option)) + "\n";
        }
        if (entries.empty()) continue;
        list += group == "Options" ? ".SH OPTIONS\n" : ".SS " + group + "\n";
        list += entries;
    }
    return list;
}

std::string commandsOf(const CLI::App& app, const std::string& page) {
    std::string list;
    std::string group;
    for (const CLI::App* command : app.get_subcommands({})) {
        if (list.empty()) list = ".SH COMMANDS\n";
        if (command->get_group() != group) {
            group = command->get_group();
            list += ".SS " + group + "\n";
        }
        list += ".TP\n.BR " + plain(page + "-" + command->get_name()) + " (1)\n" +
                plain(command->get_description()) + "\n";
    }
    return list;
}

}  // namespace

std::string manPage(const Page& page, const CLI::App& app) {
    const Notes notes(cli::inColumns(app.get_footer(), kTextColumns));
    std::string text = ".TH " + upperCase(page.name) + " " + page.section + " \"\" \"" + kPackage +
                       " " LUMO_KEYMASTER_VERSION "\"\n";
    text += ".SH NAME\n" + plain(page.name) + " \\- " + summaryOf(app) + "\n";
    text += ".SH SYNOPSIS\n.B " + plain(page.command) + "\n" + plain(cli::usageOf(app)) + "\n";
    const std::string description = withoutEmptyParagraphs(notes.description());
    text += ".SH DESCRIPTION\n";
    text += description.empty() ? plain(app.get_description()) + ".\n" : description;
    text += commandsOf(app, page.name) + optionsOf(app) + withoutEmptyParagraphs(notes.sections());
    return text + ".SH SEE ALSO\n" + plain(page.see_also) + "\n";
}

}  // namespace lumo::manual
