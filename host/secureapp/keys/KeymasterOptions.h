// What kind of keymaster is simulated; fixed for as long as it runs.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>

namespace lumo::secureapp {

// Versions of key blobs as the library distinguishes them: major in the high half, minor in the
// low.
constexpr uint64_t kBlobVersion3_0 = 0x300000000;
constexpr uint64_t kBlobVersion4_0 = 0x400000000;
constexpr uint64_t kBlobVersion4_1 = 0x400000001;
constexpr uint64_t kBlobVersion4_4 = 0x400000004;

struct KeymasterOptions {
    keymaster_security_level_t level = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
    // The version of new blobs. Below 4.1 auth timeouts stand in milliseconds and there are no
    // vendor and boot patch levels in the clear part.
    uint64_t blob_version = kBlobVersion4_1;
    // Whether blobs of keys for early boot may have version 4.4, whose clear part reports that.
    bool early_boot_blobs = true;
    // Whether the wall clock can be trusted. Otherwise enforcing the dates of a key is left to the
    // caller.
    bool trusted_clock = false;
};

}  // namespace lumo::secureapp
