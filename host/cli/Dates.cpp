#include "Dates.h"

#include <stdio.h>
#include <time.h>

#include "Vocabulary.h"

namespace lumo::cli {
namespace {

// The Gregorian calendar of 1970 to 9999, counted here because the C library's functions end in
// 2038 where time_t has 32 bits. Its years begin in March, so that the leap day comes last.
constexpr int64_t kDaysTo1970 = 719468;  // from 0000-03-01
constexpr int64_t kDaysPerEra = 146097;  // 400 years
constexpr int64_t kMillisPerDay = 86400000;

struct Date {
    int64_t year, month, day;
};

int64_t daysUntil(const Date& date) {
    const int64_t year = date.month > 2 ? date.year : date.year - 1;
    const int64_t month = (date.month + 9) % 12;  // 0 is March
    return 365 * year + year / 4 - year / 100 + year / 400 + (153 * month + 2) / 5 + date.day - 1 -
           kDaysTo1970;
}

Date dateAfter(int64_t days) {
    const int64_t whole = days + kDaysTo1970;
    const int64_t day_of_era = whole % kDaysPerEra;
    const int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const int64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const int64_t month = (5 * day_of_year + 2) / 153;  // 0 is March
    const int64_t year = year_of_era + whole / kDaysPerEra * 400 + (month < 10 ? 0 : 1);
    return {year, month < 10 ? month + 3 : month - 9, day_of_year - (153 * month + 2) / 5 + 1};
}

// "2030", "203001" and "20300131" would be some seconds or hours after 1970.
bool looksLikeADate(const std::string& digits) {
    const size_t size = digits.size();
    const std::string century = digits.substr(0, 2);
    return (size == 4 || size == 6 || size == 8) && (century == "19" || century == "20");
}

}  // namespace

std::optional<uint64_t> parseDate(const std::string& text) {
    if (looksLikeADate(text)) return std::nullopt;
    if (const auto milliseconds = parseNumber(text, UINT64_MAX)) return milliseconds;
    for (const char* format : {"%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%d"}) {
        struct tm fields = {};
        const char* end = strptime(text.c_str(), format, &fields);
        if (end == nullptr || *end != '\0') continue;
        const int64_t days = daysUntil({fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday});
        // The 31st of a shorter month would be a day of the next one.
        if (days < 0 || dateAfter(days).day != fields.tm_mday) return std::nullopt;
        const int64_t seconds = (fields.tm_hour * 60 + fields.tm_min) * 60 + fields.tm_sec;
        return static_cast<uint64_t>(days * kMillisPerDay + seconds * 1000);
    }
    return std::nullopt;
}

std::string dateText(uint64_t milliseconds) {
    constexpr uint64_t kFirstOfYear10000 = 253402300800000;
    if (milliseconds >= kFirstOfYear10000) return std::to_string(milliseconds);
    const Date date = dateAfter(static_cast<int64_t>(milliseconds) / kMillisPerDay);
    const int of_day = static_cast<int>(milliseconds % kMillisPerDay);
    char text[32];
    snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year),
             static_cast<int>(date.month), static_cast<int>(date.day), of_day / 3600000,
             of_day / 60000 % 60, of_day / 1000 % 60, of_day % 1000);
    return text;
}

}  // namespace lumo::cli
