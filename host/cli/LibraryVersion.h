// Which library answers: the version that its ELF file names.
#pragma once

#include <string>

namespace lumo::cli {

// Of the liblumokeymaster4 in this process; "unknown" where its file has no such note.
std::string libraryVersion();

}  // namespace lumo::cli
