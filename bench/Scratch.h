// What measurements need of their surroundings.
#pragma once

#include <string>

namespace lumo::bench {

// A folder of the process's own for the state of secure applications, removed at its end.
const std::string& scratchFolder();

// Gives the platform's properties known values, and the secure application a fresh state directory
// in the scratch folder. Called once, before anything is made.
void setUpWorld();

[[noreturn]] void giveUp(const std::string& what);

// Ends the process with `what` unless `good`: a measurement of a failing call means nothing.
inline void require(bool good, const char* what) {
    if (!good) giveUp(what);
}

}  // namespace lumo::bench
