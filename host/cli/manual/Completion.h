// Completion of command lines in bash, from what the programs declare for their own help.
#pragma once

#include <CLI/App.hpp>
#include <string>

namespace lumo::manual {

// A script that bash reads: commands, options, and the words of options that list theirs. Every
// other value is completed as a file name.
std::string bashCompletion(const CLI::App& app);

}  // namespace lumo::manual
