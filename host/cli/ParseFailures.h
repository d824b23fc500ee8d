// What is wrong with a command line, in words of this program.
#pragma once

#include <CLI/App.hpp>
#include <string>

namespace lumo::cli {

// Why the line was not understood, and what to try. `app` has parsed it and thrown `error`.
std::string explain(const CLI::App& app, const CLI::ParseError& error);

// The name of the command that the line names; empty where it does not get that far.
std::string commandIn(const CLI::App& app);

}  // namespace lumo::cli
