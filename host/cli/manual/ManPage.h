// Manual pages, from what the programs declare for their own help.
#pragma once

#include <CLI/App.hpp>
#include <string>

namespace lumo::manual {

struct Page {
    std::string name;      // "lumokm-sign"
    char section;          // '1' for commands, '8' for daemons
    std::string command;   // "lumokm sign": as it is typed
    std::string see_also;  // "lumokm(1)"
};

// The page in the format of man(7). Notes in the footer become sections where they have the titles
// "Example:", "Environment:" and the like, and the description otherwise.
std::string manPage(const Page& page, const CLI::App& app);

}  // namespace lumo::manual
