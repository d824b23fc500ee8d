// What the daemon tells about itself: lines with a time in UTC, on standard error or in a file.
#pragma once

#include <string>

#include "secureapp/base/Posix.h"

namespace lumo::secureapp {

// May be used from several threads: a line is written in one piece. A line that cannot be written
// is lost, and the daemon goes on.
class Log {
  public:
    // To standard error for an empty `file`; else behind what the file holds, made for the owner
    // alone where it is missing. Throws StateError.
    Log(const std::string& file, bool verbose);

    bool verbose() const { return verbose_; }
    void line(const std::string& text) const;
    // Only with verbose().
    void detail(const std::string& text) const {
        if (verbose_) line(text);
    }

  private:
    FileHandle file_;
    bool verbose_;
};

}  // namespace lumo::secureapp
