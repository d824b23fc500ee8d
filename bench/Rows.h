// What Main.cpp runs.
#pragma once

namespace lumo::bench {

// Registers the rows of a program.
void registerAll();

}  // namespace lumo::bench
