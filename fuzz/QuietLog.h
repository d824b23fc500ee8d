// Drops what is written to the Android log while it lives, without allocating.
#pragma once

#include <android/log.h>

namespace lumo::fuzz {

class QuietLog {
  public:
    QuietLog() {
        __android_log_set_logger([](const __android_logger_data*, const char*) {});
    }
    ~QuietLog() { __android_log_set_logger(__android_log_stderr_logger); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;
};

}  // namespace lumo::fuzz
