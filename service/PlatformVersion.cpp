#include "PlatformVersion.h"

#include <cutils/properties.h>

#include <string>

#include "Log.h"

namespace keymaster::V4_0 {
namespace {

using ::keymasterdevice::kServiceLogTag;

constexpr char kVersionPattern[] = "^([0-9]{1,2})(\\.([0-9]{1,2}))?(\\.([0-9]{1,2}))?";
constexpr char kDatePattern[] = "^([0-9]{4})-([0-9]{2})-([0-9]{2})$";

// Groups of the patterns, by match slot; slot 0 is the whole match.
constexpr size_t kMajor = 1;
constexpr size_t kMinor = 3;
constexpr size_t kSubminor = 5;
constexpr size_t kVersionSlots = 6;
constexpr size_t kYear = 1;
constexpr size_t kMonth = 2;
constexpr size_t kDay = 3;
constexpr size_t kSlotsToMonth = 3;
constexpr size_t kSlotsToDay = 4;

enum class Matching { kMatched, kNoMatch, kBadPattern };

Matching matchPattern(const char* pattern, const char* text, size_t slots, regmatch_t* matches) {
    regex_t regex;
    if (regcomp(&regex, pattern, REG_EXTENDED) != 0) return Matching::kBadPattern;
    const int result = regexec(&regex, text, slots, matches, 0);
    regfree(&regex);
    return result == 0 ? Matching::kMatched : Matching::kNoMatch;
}

// Matches a date. Logs why it does not match: `mismatch` is the line for a text of another form.
bool matchDate(const char* text, const char* mismatch, size_t slots, regmatch_t* matches) {
    const Matching outcome = matchPattern(kDatePattern, text, slots, matches);
    if (outcome == Matching::kMatched) return true;
    if (outcome == Matching::kNoMatch) {
        KM_LOG_INFO(kServiceLogTag, "%s", mismatch);
    } else {
        KM_LOG_ERROR(kServiceLogTag, "Failed to compile platform patchlevel regex! (%s)",
                     kDatePattern);
    }
    return false;
}

bool validMonth(uint32_t month) {
    if (month >= 1 && month <= 12) return true;
    KM_LOG_ERROR(kServiceLogTag, "Invalid patch month %d", static_cast<int>(month));
    return false;
}

bool validDay(uint32_t day) {
    if (day >= 1 && day <= 31) return true;
    KM_LOG_ERROR(kServiceLogTag, "Invalid patch date %d", static_cast<int>(day));
    return false;
}

}  // namespace

uint32_t match_to_uint32(const char* expression, const regmatch_t& match) {
    if (match.rm_so == -1) return 0;
    const std::string digits(expression + match.rm_so, expression + match.rm_eo);
    return static_cast<uint32_t>(std::stoul(digits, nullptr, 10));
}

uint32_t GetOsVersion() {
    char release[PROPERTY_VALUE_MAX];
    property_get("ro.build.version.release", release, "");

    regmatch_t matches[kVersionSlots];
    const Matching outcome = matchPattern(kVersionPattern, release, kVersionSlots, matches);
    if (outcome == Matching::kBadPattern) {
        KM_LOG_ERROR(kServiceLogTag, "Failed to compile version regex! (%s)", kVersionPattern);
        return 0;
    }
    if (outcome == Matching::kNoMatch) {
        KM_LOG_INFO(kServiceLogTag,
                    "Platform version string does not match expected format.  Using version 0.");
        return 0;
    }
    const uint32_t major = match_to_uint32(release, matches[kMajor]);
    const uint32_t minor = match_to_uint32(release, matches[kMinor]);
    const uint32_t subminor = match_to_uint32(release, matches[kSubminor]);
    return (major * 100 + minor) * 100 + subminor;
}

uint32_t GetOsPatchlevel() {
    char date[PROPERTY_VALUE_MAX];
    property_get("ro.build.version.security_patch", date, "");
    return GetPatchlevel(date);
}

uint32_t GetPatchlevel(const char* date) {
    regmatch_t matches[kSlotsToMonth];
    if (!matchDate(date,
                   "Platform patchlevel string does not match expected format.  Using patchlevel 0",
                   kSlotsToMonth, matches)) {
        return 0;
    }
    const uint32_t year = match_to_uint32(date, matches[kYear]);
    const uint32_t month = match_to_uint32(date, matches[kMonth]);
    if (!validMonth(month)) return 0;
    return year * 100 + month;
}

uint32_t GetVendorPatchlevel(bool date_support) {
    char date[PROPERTY_VALUE_MAX];
    property_get("ro.vendor.build.security_patch", date, "");
    // Kept: without date support the messages speak of the platform patch level.
    if (!date_support) return GetPatchlevel(date);

    regmatch_t matches[kSlotsToDay];
    if (!matchDate(date,
                   "Vendor patchlevel string does not match expected format.  Using patchlevel 0",
                   kSlotsToDay, matches)) {
        return 0;
    }
    const uint32_t year = match_to_uint32(date, matches[kYear]);
    const uint32_t month = match_to_uint32(date, matches[kMonth]);
    const uint32_t day = match_to_uint32(date, matches[kDay]);
    // Kept: the day is checked up to 31 whatever the month.
    if (!validMonth(month) || !validDay(day)) return 0;
    return year * 10000 + month * 100 + day;
}

}  // namespace keymaster::V4_0
