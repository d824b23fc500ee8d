// Shows the progress of long work on a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace lumo::cli {

// Rewrites one line on standard error once the work has taken a while; nothing where standard error
// is not a terminal or the user wants silence. Without finish() the line is cleared at the end.
class Progress {
  public:
    Progress(std::string verb, std::optional<uint64_t> total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void advance(uint64_t bytes);
    // Leaves how much was done in what time, where progress was shown.
    void finish();

  private:
    std::string verb_;
    std::optional<uint64_t> total_;
    uint64_t done_ = 0;
    bool shown_ = false;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point next_;
};

}  // namespace lumo::cli
