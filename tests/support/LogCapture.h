// Collects what is written to the Android log while it lives.
#pragma once

#include <string>
#include <vector>

namespace lumo::test {

struct LogLine {
    int priority;
    std::string tag;
    std::string text;
};

class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogLine>& lines() const;
    // The texts alone, in order.
    std::vector<std::string> texts() const;
};

}  // namespace lumo::test
