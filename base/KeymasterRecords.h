// Records that the library shares with the secure application beside the keymaster HAL's own.
#pragma once

#include <cstdint>

// One party's share in the HMAC key agreement. Lists of them travel as back-to-back records.
struct hmac_sharing_params_t {
    uint8_t seed[32];
    uint8_t nonce[32];
};
static_assert(sizeof(hmac_sharing_params_t) == 64, "travels as 64 raw bytes");

// The answer to an authorization check.
struct verification_token_t {
    uint64_t challenge;
    uint64_t timestamp;  // milliseconds since boot
    uint32_t security_level;
    uint8_t mac[32];
};

// A broken-down UTC date. Every field is -1 where there is no date.
struct tztm {
    int32_t tm_sec = -1;
    int32_t tm_min = -1;
    int32_t tm_hour = -1;
    int32_t tm_mday = -1;  // 1 to 31
    int32_t tm_mon = -1;   // 1 to 12
    int32_t tm_year = -1;  // the full year
    int32_t tm_wday = -1;  // these three are always -1
    int32_t tm_yday = -1;
    int32_t tm_isdst = -1;
};
