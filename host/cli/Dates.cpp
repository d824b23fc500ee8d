#include "Dates.h"

#include <stdio.h>
#include <time.h>

#include "Vocabulary.h"

namespace lumo::cli {

std::optional<uint64_t> parseDate(const std::string& text) {
    if (const auto milliseconds = parseNumber(text, UINT64_MAX)) return milliseconds;
    for (const char* format : {"%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%d"}) {
        struct tm fields = {};
        const char* end = strptime(text.c_str(), format, &fields);
        if (end == nullptr || *end != '\0') continue;
        const int day = fields.tm_mday;
        const time_t seconds = timegm(&fields);
        // The 31st of a shorter month is normalized to a day of the next one.
        if (seconds < 0 || fields.tm_mday != day) return std::nullopt;
        return static_cast<uint64_t>(seconds) * 1000;
    }
    return std::nullopt;
}

std::string dateText(uint64_t milliseconds) {
    constexpr uint64_t kFirstOfYear10000 = 253402300800000;
    if (milliseconds >= kFirstOfYear10000) return std::to_string(milliseconds);
    const time_t seconds = static_cast<time_t>(milliseconds / 1000);
    struct tm fields = {};
    gmtime_r(&seconds, &fields);
    char text[32];
    const size_t length = strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &fields);
    snprintf(text + length, sizeof(text) - length, ".%03uZ",
             static_cast<unsigned>(milliseconds % 1000));
    return text;
}

}  // namespace lumo::cli
