#include "Progress.h"

#include <unistd.h>

#include <iostream>

namespace lumo::cli {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kQuietTime{1};
constexpr std::chrono::milliseconds kInterval{200};

std::string kibibytes(uint64_t bytes) {
    return std::to_string(bytes >> 10) + " KiB";
}

}  // namespace

Progress::Progress(std::string verb, std::optional<uint64_t> total)
    : verb_(std::move(verb)), total_(total), next_(Clock::now() + kQuietTime) {}

Progress::~Progress() {
    if (shown_) std::cerr << "\r\033[K" << std::flush;
}

void Progress::advance(uint64_t bytes) {
    done_ += bytes;
    if (Clock::now() < next_ || isatty(STDERR_FILENO) == 0) return;
    next_ = Clock::now() + kInterval;
    shown_ = true;
    std::cerr << "\r\033[K" << verb_ << ": " << kibibytes(done_);
    if (total_) std::cerr << " of " << kibibytes(*total_);
    std::cerr << std::flush;
}

}  // namespace lumo::cli
