// The client's command line as a whole.
#pragma once

namespace lumo::cli {

// Parses, runs the command and reports its failure on standard error. Returns the exit
// status.
int run(int argc, char** argv);

}  // namespace lumo::cli
