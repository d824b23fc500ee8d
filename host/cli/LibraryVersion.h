// Which library is in use: the version in its ELF file.
#pragma once

#include <string>

namespace lumo::cli {

// Of the liblumokeymaster4 in this process; "unknown" where its file has no such note.
std::string libraryVersion();

}  // namespace lumo::cli
