// The text of --help, in 80 columns.
#pragma once

#include <CLI/App.hpp>
#include <string>

namespace lumo::cli {

constexpr size_t kHelpColumns = 80;

// "[OPTION]... COMMAND": what follows the program's or command's name.
std::string usageOf(const CLI::App& app);

// "-o,--out FILE": the names of an option and the form of its value.
std::string syntaxOf(const CLI::Option& option);

// What the option does, with "required", its default and what excludes it.
std::string meaningOf(const CLI::Option& option);

// Notes below the options: paragraphs of plain lines, which may be broken anew, and lines that
// begin with a space, which are commands or tables. Returns them in at most so many columns; a
// command that is too long goes on in the next line after a backslash.
std::string inColumns(const std::string& notes, size_t columns = kHelpColumns);

class HelpFormatter : public CLI::Formatter {
  public:
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;
    std::string make_subcommand(const CLI::App* sub) const override;
};

}  // namespace lumo::cli
