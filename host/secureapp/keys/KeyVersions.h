// The versions of the installed system, to which keys are bound.
#pragma once

#include <string>

#include "secureapp/base/Params.h"

namespace lumo::secureapp {

// OS version and patch levels, and those of vendor and boot image.
constexpr keymaster_tag_t kVersionTags[] = {KM_TAG_OS_VERSION, KM_TAG_OS_PATCHLEVEL,
                                            kTagVendorPatchlevel, kTagBootPatchlevel};

// Whether `value` reads as a date, YYYYMMDD, as patch levels of vendor and boot image must.
bool isPatchDate(uint64_t value);

// Replaces the version tags in `authorizations`.
void setVersions(ParamSet& authorizations, const ParamSet& versions);

// Whether a key is bound to exactly these versions.
bool isCurrent(const ParamSet& authorizations, const ParamSet& versions);

// Whether upgrading would bind the key to something older. Version 0 is a system in development,
// to which keys may be downgraded.
bool wouldDowngrade(const ParamSet& authorizations, const ParamSet& versions);

// The version of a key that is not the installed one, with both values: "key has OS patch level
// 202103, device has 202012". Of several, one that is newer than the device's.
std::string versionDifference(const ParamSet& authorizations, const ParamSet& versions);

// The versions among the parameters with their names.
std::string versionWords(const ParamSet& params);

}  // namespace lumo::secureapp
