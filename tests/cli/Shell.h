// Runs command lines as a user would type them, in a directory with a state of its own.
#pragma once

#include <string>

#include "Folder.h"

namespace lumo::test {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

class Shell {
  public:
    // `transport` goes into LUMO_TRANSPORT. The state has the attestation keys made for tests, or,
    // which takes a while, new ones.
    explicit Shell(const std::string& transport = "", bool new_attestation_keys = false);

    // The command line runs in the directory, with our tools in its PATH and nothing on standard
    // input.
    Outcome run(const std::string& command) const;

    // Expects status 0; the failure shows the command and what it said. Returns standard output.
    std::string expectOk(const std::string& command) const;

    void write(const std::string& name, const std::string& content) const;
    std::string read(const std::string& name) const;
    std::string path(const std::string& name) const { return directory_ + "/" + name; }

    // Names of the files in the directory, sorted, joined by spaces.
    std::string files() const;

  private:
    Folder root_;
    std::string directory_;
    std::string transport_;
};

}  // namespace lumo::test
