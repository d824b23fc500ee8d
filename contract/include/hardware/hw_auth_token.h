// The authentication token record that the platform publishes.
#pragma once

#include <stdint.h>

#define HW_AUTH_TOKEN_VERSION 0

typedef enum {
    HW_AUTH_NONE = 0,
    HW_AUTH_PASSWORD = 1,
    HW_AUTH_FINGERPRINT = 2,
    HW_AUTH_ANY = UINT32_MAX,
} hw_authenticator_type_t;

typedef struct __attribute__((__packed__)) {
    uint8_t version;
    uint64_t challenge;
    uint64_t user_id;
    uint64_t authenticator_id;
    uint32_t authenticator_type;
    uint64_t timestamp;
    uint8_t hmac[32];
} hw_auth_token_t;
