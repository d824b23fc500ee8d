// The lines of a trace that cannot be read, for people: a file of another version, or no trace at
// all, says the same of each of its lines.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace lumo::inspect {

class UnreadableLines {
  public:
    // `number` counts from 1.
    void add(size_t number, const std::string& why);

    size_t count() const { return count_; }

    // "line 3 and 4 more: the trace has version 2": each reason once, by its first line, and only
    // as many reasons as help.
    std::vector<std::string> sentences() const;

  private:
    struct Reason {
        size_t first;
        size_t more;
        std::string why;
    };

    std::vector<Reason> reasons_;
    size_t count_ = 0;
    size_t others_ = 0;  // with reasons of their own
};

}  // namespace lumo::inspect
