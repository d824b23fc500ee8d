// Other programs, which check what the code under test makes.
#pragma once

#include <string>

namespace lumo::test {

struct ProgramResult {
    int status = -1;     // exit status
    std::string output;  // standard output and standard error
};
ProgramResult run(const std::string& shell_line);

}  // namespace lumo::test
