#pragma once

// Stand-in for the platform's authentication token record: the form in which user authenticators
// hand their statement to a keymaster, byte for byte.

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HW_AUTH_TOKEN_VERSION 0

typedef enum {
    HW_AUTH_NONE = 0,
    HW_AUTH_PASSWORD = 1 << 0,
    HW_AUTH_FINGERPRINT = 1 << 1,
    HW_AUTH_ANY = UINT32_MAX,
} hw_authenticator_type_t;

// Packed; authenticator_type and timestamp are big-endian, the other integers in host order.
typedef struct __attribute__((__packed__)) {
    uint8_t version;  // HW_AUTH_TOKEN_VERSION
    uint64_t challenge;
    uint64_t user_id;
    uint64_t authenticator_id;
    uint32_t authenticator_type;  // a hw_authenticator_type_t
    uint64_t timestamp;           // milliseconds since boot
    uint8_t hmac[32];
} hw_auth_token_t;

#ifdef __cplusplus
}  // extern "C"

static_assert(sizeof(hw_auth_token_t) == 69, "published record size");
static_assert(offsetof(hw_auth_token_t, challenge) == 1, "published offset");
static_assert(offsetof(hw_auth_token_t, user_id) == 9, "published offset");
static_assert(offsetof(hw_auth_token_t, authenticator_id) == 17, "published offset");
static_assert(offsetof(hw_auth_token_t, authenticator_type) == 25, "published offset");
static_assert(offsetof(hw_auth_token_t, timestamp) == 29, "published offset");
static_assert(offsetof(hw_auth_token_t, hmac) == 37, "published offset");
#endif
