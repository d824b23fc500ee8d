// OS version and patch levels from the system properties. Nothing here fails: what cannot be read
// or parsed is 0, with a line in the log.
#pragma once

#include <regex.h>

#include <cstdint>

namespace keymaster::V4_0 {

// "ro.build.version.release" as major * 10000 + minor * 100 + subminor.
uint32_t GetOsVersion();

// "ro.build.version.security_patch" as YYYYMM.
uint32_t GetOsPatchlevel();

// "ro.vendor.build.security_patch" as YYYYMMDD where the secure application supports dates in patch
// levels, else as YYYYMM.
uint32_t GetVendorPatchlevel(bool date_support);

// YYYYMM of a date YYYY-MM-DD.
uint32_t GetPatchlevel(const char* date);

// The decimal number that a group matched; 0 for a group that took no part in the match.
uint32_t match_to_uint32(const char* expression, const regmatch_t& match);

}  // namespace keymaster::V4_0
