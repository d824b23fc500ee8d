// The client's command line as a whole.
#pragma once

#include <CLI/App.hpp>
#include <functional>

namespace lumo::cli {

// Parses, runs the command and reports its failure on standard error. Returns the exit
// status.
int run(int argc, char** argv);

// Shows the command line as it is declared, with every command: for manuals and completion.
void visitCommandLine(const std::function<void(const CLI::App& app)>& visit);

}  // namespace lumo::cli
