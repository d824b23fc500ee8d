// OS version and patch levels from the system properties. Nothing here fails: a property that is
// missing or not of the expected form gives 0, with a line in the log.
#pragma once

#include <regex.h>

#include <cstdint>

namespace keymaster::V4_0 {

// "ro.build.version.release" as major * 10000 + minor * 100 + subminor: 110000 for "11". Parts have
// one or two digits, missing ones are 0, and what follows them is ignored.
[[nodiscard]] uint32_t GetOsVersion();

// "ro.build.version.security_patch", a date YYYY-MM-DD, as the number YYYYMM.
[[nodiscard]] uint32_t GetOsPatchlevel();

// "ro.vendor.build.security_patch", a date YYYY-MM-DD, as the number YYYYMMDD where the secure
// application supports days in patch levels, else as YYYYMM.
[[nodiscard]] uint32_t GetVendorPatchlevel(bool date_support);

// A date YYYY-MM-DD, which is not null, as the number YYYYMM; the day is not checked.
[[nodiscard]] uint32_t GetPatchlevel(const char* date);

// The number that a group matched in `expression`; 0 for a group that took no part in the match.
// The group matches decimal digits only, at most nine of them.
[[nodiscard]] uint32_t match_to_uint32(const char* expression, const regmatch_t& match);

}  // namespace keymaster::V4_0
