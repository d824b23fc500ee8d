#include "LogCapture.h"

#include <android/log.h>

namespace lumo::test {
namespace {

std::vector<LogLine>& captured() {
    static std::vector<LogLine> lines;
    return lines;
}

void capture(const __android_logger_data* data, const char* message) {
    captured().push_back({data->priority, data->tag ? data->tag : "", message});
}

}  // namespace

LogCapture::LogCapture() {
    captured().clear();
    __android_log_set_logger(capture);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
}

const std::vector<LogLine>& LogCapture::lines() const {
    return captured();
}

std::vector<std::string> LogCapture::texts() const {
    std::vector<std::string> texts;
    for (const LogLine& line : captured()) texts.push_back(line.text);
    return texts;
}

}  // namespace lumo::test
