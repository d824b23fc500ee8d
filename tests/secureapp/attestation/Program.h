// Other programs, which judge what the code under test makes.
#pragma once

#include <string>
#include <vector>

#include "Types.h"

namespace lumo::test {

struct ProgramResult {
    int status = -1;     // exit status
    std::string output;  // standard output and standard error
};
// The arguments are passed as they are, without a shell's interpretation.
ProgramResult run(const std::vector<std::string>& arguments);

// A directory that goes away with everything in it.
class ScratchFolder {
  public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    std::string path(const std::string& name) const { return folder_ + "/" + name; }
    // Writes a file and returns its path.
    std::string write(const std::string& name, secureapp::ByteView content) const;

  private:
    std::string folder_;
};

}  // namespace lumo::test
