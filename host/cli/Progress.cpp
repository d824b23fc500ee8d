#include "Progress.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "Report.h"

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
    : verb_(std::move(verb)), total_(total), next_(start_ + kQuietTime) {}

Progress::~Progress() {
    if (shown_) std::cerr << "\r\033[K" << std::flush;
}

void Progress::finish() {
    if (!shown_) return;
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    const auto mebibytes = static_cast<double>(done_) / (1 << 20);
    char line[80];
    snprintf(line, sizeof(line), ": %.1f MiB in %.1f s, %.1f MiB/s\n", mebibytes, seconds,
             mebibytes / seconds);
    std::cerr << "\r\033[K" << verb_ << line << std::flush;
    shown_ = false;
}

void Progress::advance(uint64_t bytes) {
    done_ += bytes;
    if (Clock::now() < next_ || isQuiet() || isatty(STDERR_FILENO) == 0) return;
    next_ = Clock::now() + kInterval;
    shown_ = true;
    std::cerr << "\r\033[K" << verb_ << ": " << kibibytes(done_);
    if (total_) std::cerr << " of " << kibibytes(*total_);
    std::cerr << std::flush;
}

}  // namespace lumo::cli
