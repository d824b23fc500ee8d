// The daemon's command line.
#pragma once

#include <CLI/App.hpp>
#include <string>

#include "secureapp/daemon/Server.h"

namespace lumo::secureapp {

struct Options {
    std::string listen;
    std::string state;
    std::string profile = "cbor";
    bool test_keys = false;
    int ready_fd = -1;
    std::string log;
    std::string trace;
    bool unredacted = false;
    bool verbose = false;
    unsigned idle_seconds = kIdlePatience.count();
    bool harden = false;
    bool faults = false;
    bool print_capabilities = false;
};

// Gives the program its name, its options and its help. Parsing writes into `options`.
void declareOptions(CLI::App& program, Options& options);

}  // namespace lumo::secureapp
