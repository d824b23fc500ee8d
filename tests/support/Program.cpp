#include "Program.h"

#include <sys/wait.h>

#include <cstdio>
#include <stdexcept>

namespace lumo::test {

ProgramResult run(const std::string& shell_line) {
    FILE* pipe = popen((shell_line + " 2>&1").c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("cannot start " + shell_line);
    ProgramResult result;
    for (int c = 0; (c = fgetc(pipe)) != EOF;) result.output.push_back(static_cast<char>(c));
    const int status = pclose(pipe);
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}

}  // namespace lumo::test
