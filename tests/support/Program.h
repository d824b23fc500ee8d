// Other programs, which judge what the code under test makes, and files for them.
#pragma once

#include <string>

#include "secureapp/base/Bytes.h"

namespace lumo::test {

struct ProgramResult {
    int status = -1;     // exit status
    std::string output;  // standard output and standard error
};
ProgramResult run(const std::string& shell_line);

// A directory that goes away with everything in it.
class ScratchFolder {
  public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    // Of a file in it; without a name its own.
    std::string path(const std::string& name = "") const { return folder_ + "/" + name; }
    // Writes a file and returns its path.
    std::string write(const std::string& name, secureapp::ByteView content) const;

  private:
    std::string folder_;
};

}  // namespace lumo::test
