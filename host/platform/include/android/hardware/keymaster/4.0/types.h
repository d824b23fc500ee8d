#pragma once

// Stand-in for the types of android.hardware.keymaster@4.0: names, values, order and layouts are
// the published ones. The value lists stand first; everything about an enumeration follows from its
// list.

#include <hidl/HidlSupport.h>
#include <lumo/HidlEnum.h>

#include <cstddef>
#include <cstdint>
#include <string>

#define LUMO_KM40_CONSTANTS(X) X(AUTH_TOKEN_MAC_LENGTH, 32)

#define LUMO_KM40_TAG_TYPES(X) \
    X(INVALID, 0U << 28)       \
    X(ENUM, 1U << 28)          \
    X(ENUM_REP, 2U << 28)      \
    X(UINT, 3U << 28)          \
    X(UINT_REP, 4U << 28)      \
    X(ULONG, 5U << 28)         \
    X(DATE, 6U << 28)          \
    X(BOOL, 7U << 28)          \
    X(BIGNUM, 8U << 28)        \
    X(BYTES, 9U << 28)         \
    X(ULONG_REP, 10U << 28)

#define LUMO_KM40_TAGS(X)                                         \
    X(INVALID, V4_0::TagType::INVALID | 0U)                       \
    X(PURPOSE, V4_0::TagType::ENUM_REP | 1U)                      \
    X(ALGORITHM, V4_0::TagType::ENUM | 2U)                        \
    X(KEY_SIZE, V4_0::TagType::UINT | 3U)                         \
    X(BLOCK_MODE, V4_0::TagType::ENUM_REP | 4U)                   \
    X(DIGEST, V4_0::TagType::ENUM_REP | 5U)                       \
    X(PADDING, V4_0::TagType::ENUM_REP | 6U)                      \
    X(CALLER_NONCE, V4_0::TagType::BOOL | 7U)                     \
    X(MIN_MAC_LENGTH, V4_0::TagType::UINT | 8U)                   \
    X(EC_CURVE, V4_0::TagType::ENUM | 10U)                        \
    X(RSA_PUBLIC_EXPONENT, V4_0::TagType::ULONG | 200U)           \
    X(INCLUDE_UNIQUE_ID, V4_0::TagType::BOOL | 202U)              \
    X(BLOB_USAGE_REQUIREMENTS, V4_0::TagType::ENUM | 301U)        \
    X(BOOTLOADER_ONLY, V4_0::TagType::BOOL | 302U)                \
    X(ROLLBACK_RESISTANCE, V4_0::TagType::BOOL | 303U)            \
    X(HARDWARE_TYPE, V4_0::TagType::ENUM | 304U)                  \
    X(ACTIVE_DATETIME, V4_0::TagType::DATE | 400U)                \
    X(ORIGINATION_EXPIRE_DATETIME, V4_0::TagType::DATE | 401U)    \
    X(USAGE_EXPIRE_DATETIME, V4_0::TagType::DATE | 402U)          \
    X(MIN_SECONDS_BETWEEN_OPS, V4_0::TagType::UINT | 403U)        \
    X(MAX_USES_PER_BOOT, V4_0::TagType::UINT | 404U)              \
    X(USER_ID, V4_0::TagType::UINT | 501U)                        \
    X(USER_SECURE_ID, V4_0::TagType::ULONG_REP | 502U)            \
    X(NO_AUTH_REQUIRED, V4_0::TagType::BOOL | 503U)               \
    X(USER_AUTH_TYPE, V4_0::TagType::ENUM | 504U)                 \
    X(AUTH_TIMEOUT, V4_0::TagType::UINT | 505U)                   \
    X(ALLOW_WHILE_ON_BODY, V4_0::TagType::BOOL | 506U)            \
    X(TRUSTED_USER_PRESENCE_REQUIRED, V4_0::TagType::BOOL | 507U) \
    X(TRUSTED_CONFIRMATION_REQUIRED, V4_0::TagType::BOOL | 508U)  \
    X(UNLOCKED_DEVICE_REQUIRED, V4_0::TagType::BOOL | 509U)       \
    X(APPLICATION_ID, V4_0::TagType::BYTES | 601U)                \
    X(APPLICATION_DATA, V4_0::TagType::BYTES | 700U)              \
    X(CREATION_DATETIME, V4_0::TagType::DATE | 701U)              \
    X(ORIGIN, V4_0::TagType::ENUM | 702U)                         \
    X(ROOT_OF_TRUST, V4_0::TagType::BYTES | 704U)                 \
    X(OS_VERSION, V4_0::TagType::UINT | 705U)                     \
    X(OS_PATCHLEVEL, V4_0::TagType::UINT | 706U)                  \
    X(UNIQUE_ID, V4_0::TagType::BYTES | 707U)                     \
    X(ATTESTATION_CHALLENGE, V4_0::TagType::BYTES | 708U)         \
    X(ATTESTATION_APPLICATION_ID, V4_0::TagType::BYTES | 709U)    \
    X(ATTESTATION_ID_BRAND, V4_0::TagType::BYTES | 710U)          \
    X(ATTESTATION_ID_DEVICE, V4_0::TagType::BYTES | 711U)         \
    X(ATTESTATION_ID_PRODUCT, V4_0::TagType::BYTES | 712U)        \
    X(ATTESTATION_ID_SERIAL, V4_0::TagType::BYTES | 713U)         \
    X(ATTESTATION_ID_IMEI, V4_0::TagType::BYTES | 714U)           \
    X(ATTESTATION_ID_MEID, V4_0::TagType::BYTES | 715U)           \
    X(ATTESTATION_ID_MANUFACTURER, V4_0::TagType::BYTES | 716U)   \
    X(ATTESTATION_ID_MODEL, V4_0::TagType::BYTES | 717U)          \
    X(VENDOR_PATCHLEVEL, V4_0::TagType::UINT | 718U)              \
    X(BOOT_PATCHLEVEL, V4_0::TagType::UINT | 719U)                \
    X(ASSOCIATED_DATA, V4_0::TagType::BYTES | 1000U)              \
    X(NONCE, V4_0::TagType::BYTES | 1001U)                        \
    X(MAC_LENGTH, V4_0::TagType::UINT | 1003U)                    \
    X(RESET_SINCE_ID_ROTATION, V4_0::TagType::BOOL | 1004U)       \
    X(CONFIRMATION_TOKEN, V4_0::TagType::BYTES | 1005U)

#define LUMO_KM40_ALGORITHMS(X) \
    X(RSA, 1)                   \
    X(EC, 3)                    \
    X(AES, 32)                  \
    X(TRIPLE_DES, 33)           \
    X(HMAC, 128)

#define LUMO_KM40_BLOCK_MODES(X) \
    X(ECB, 1)                    \
    X(CBC, 2)                    \
    X(CTR, 3)                    \
    X(GCM, 32)

#define LUMO_KM40_PADDING_MODES(X) \
    X(NONE, 1)                     \
    X(RSA_OAEP, 2)                 \
    X(RSA_PSS, 3)                  \
    X(RSA_PKCS1_1_5_ENCRYPT, 4)    \
    X(RSA_PKCS1_1_5_SIGN, 5)       \
    X(PKCS7, 64)

#define LUMO_KM40_DIGESTS(X) \
    X(NONE, 0)               \
    X(MD5, 1)                \
    X(SHA1, 2)               \
    X(SHA_2_224, 3)          \
    X(SHA_2_256, 4)          \
    X(SHA_2_384, 5)          \
    X(SHA_2_512, 6)

#define LUMO_KM40_EC_CURVES(X) \
    X(P_224, 0)                \
    X(P_256, 1)                \
    X(P_384, 2)                \
    X(P_521, 3)

#define LUMO_KM40_KEY_ORIGINS(X) \
    X(GENERATED, 0)              \
    X(DERIVED, 1)                \
    X(IMPORTED, 2)               \
    X(UNKNOWN, 3)                \
    X(SECURELY_IMPORTED, 4)

#define LUMO_KM40_KEY_BLOB_USAGE_REQUIREMENTS(X) \
    X(STANDALONE, 0)                             \
    X(REQUIRES_FILE_SYSTEM, 1)

#define LUMO_KM40_KEY_PURPOSES(X) \
    X(ENCRYPT, 0)                 \
    X(DECRYPT, 1)                 \
    X(SIGN, 2)                    \
    X(VERIFY, 3)                  \
    X(WRAP_KEY, 5)

#define LUMO_KM40_ERROR_CODES(X)                   \
    X(OK, 0)                                       \
    X(ROOT_OF_TRUST_ALREADY_SET, -1)               \
    X(UNSUPPORTED_PURPOSE, -2)                     \
    X(INCOMPATIBLE_PURPOSE, -3)                    \
    X(UNSUPPORTED_ALGORITHM, -4)                   \
    X(INCOMPATIBLE_ALGORITHM, -5)                  \
    X(UNSUPPORTED_KEY_SIZE, -6)                    \
    X(UNSUPPORTED_BLOCK_MODE, -7)                  \
    X(INCOMPATIBLE_BLOCK_MODE, -8)                 \
    X(UNSUPPORTED_MAC_LENGTH, -9)                  \
    X(UNSUPPORTED_PADDING_MODE, -10)               \
    X(INCOMPATIBLE_PADDING_MODE, -11)              \
    X(UNSUPPORTED_DIGEST, -12)                     \
    X(INCOMPATIBLE_DIGEST, -13)                    \
    X(INVALID_EXPIRATION_TIME, -14)                \
    X(INVALID_USER_ID, -15)                        \
    X(INVALID_AUTHORIZATION_TIMEOUT, -16)          \
    X(UNSUPPORTED_KEY_FORMAT, -17)                 \
    X(INCOMPATIBLE_KEY_FORMAT, -18)                \
    X(UNSUPPORTED_KEY_ENCRYPTION_ALGORITHM, -19)   \
    X(UNSUPPORTED_KEY_VERIFICATION_ALGORITHM, -20) \
    X(INVALID_INPUT_LENGTH, -21)                   \
    X(KEY_EXPORT_OPTIONS_INVALID, -22)             \
    X(DELEGATION_NOT_ALLOWED, -23)                 \
    X(KEY_NOT_YET_VALID, -24)                      \
    X(KEY_EXPIRED, -25)                            \
    X(KEY_USER_NOT_AUTHENTICATED, -26)             \
    X(OUTPUT_PARAMETER_NULL, -27)                  \
    X(INVALID_OPERATION_HANDLE, -28)               \
    X(INSUFFICIENT_BUFFER_SPACE, -29)              \
    X(VERIFICATION_FAILED, -30)                    \
    X(TOO_MANY_OPERATIONS, -31)                    \
    X(UNEXPECTED_NULL_POINTER, -32)                \
    X(INVALID_KEY_BLOB, -33)                       \
    X(IMPORTED_KEY_NOT_ENCRYPTED, -34)             \
    X(IMPORTED_KEY_DECRYPTION_FAILED, -35)         \
    X(IMPORTED_KEY_NOT_SIGNED, -36)                \
    X(IMPORTED_KEY_VERIFICATION_FAILED, -37)       \
    X(INVALID_ARGUMENT, -38)                       \
    X(UNSUPPORTED_TAG, -39)                        \
    X(INVALID_TAG, -40)                            \
    X(MEMORY_ALLOCATION_FAILED, -41)               \
    X(IMPORT_PARAMETER_MISMATCH, -44)              \
    X(SECURE_HW_ACCESS_DENIED, -45)                \
    X(OPERATION_CANCELLED, -46)                    \
    X(CONCURRENT_ACCESS_CONFLICT, -47)             \
    X(SECURE_HW_BUSY, -48)                         \
    X(SECURE_HW_COMMUNICATION_FAILED, -49)         \
    X(UNSUPPORTED_EC_FIELD, -50)                   \
    X(MISSING_NONCE, -51)                          \
    X(INVALID_NONCE, -52)                          \
    X(MISSING_MAC_LENGTH, -53)                     \
    X(KEY_RATE_LIMIT_EXCEEDED, -54)                \
    X(CALLER_NONCE_PROHIBITED, -55)                \
    X(KEY_MAX_OPS_EXCEEDED, -56)                   \
    X(INVALID_MAC_LENGTH, -57)                     \
    X(MISSING_MIN_MAC_LENGTH, -58)                 \
    X(UNSUPPORTED_MIN_MAC_LENGTH, -59)             \
    X(UNSUPPORTED_KDF, -60)                        \
    X(UNSUPPORTED_EC_CURVE, -61)                   \
    X(KEY_REQUIRES_UPGRADE, -62)                   \
    X(ATTESTATION_CHALLENGE_MISSING, -63)          \
    X(KEYMASTER_NOT_CONFIGURED, -64)               \
    X(ATTESTATION_APPLICATION_ID_MISSING, -65)     \
    X(CANNOT_ATTEST_IDS, -66)                      \
    X(ROLLBACK_RESISTANCE_UNAVAILABLE, -67)        \
    X(HARDWARE_TYPE_UNAVAILABLE, -68)              \
    X(PROOF_OF_PRESENCE_REQUIRED, -69)             \
    X(CONCURRENT_PROOF_OF_PRESENCE_REQUESTED, -70) \
    X(NO_USER_CONFIRMATION, -71)                   \
    X(DEVICE_LOCKED, -72)                          \
    X(UNIMPLEMENTED, -100)                         \
    X(VERSION_MISMATCH, -101)                      \
    X(UNKNOWN_ERROR, -1000)

#define LUMO_KM40_KEY_DERIVATION_FUNCTIONS(X) \
    X(NONE, 0)                                \
    X(RFC5869_SHA256, 1)                      \
    X(ISO18033_2_KDF1_SHA1, 2)                \
    X(ISO18033_2_KDF1_SHA256, 3)              \
    X(ISO18033_2_KDF2_SHA1, 4)                \
    X(ISO18033_2_KDF2_SHA256, 5)

#define LUMO_KM40_HARDWARE_AUTHENTICATOR_TYPES(X) \
    X(NONE, 0)                                    \
    X(PASSWORD, 1)                                \
    X(FINGERPRINT, 2)                             \
    X(ANY, 0xFFFFFFFF)

#define LUMO_KM40_SECURITY_LEVELS(X) \
    X(SOFTWARE, 0)                   \
    X(TRUSTED_ENVIRONMENT, 1)        \
    X(STRONGBOX, 2)

#define LUMO_KM40_KEY_FORMATS(X) \
    X(X509, 0)                   \
    X(PKCS8, 1)                  \
    X(RAW, 3)

// Every enumeration of this version: X(name, underlying type, list of values).
#define LUMO_KM40_ENUMS(X)                                                         \
    X(Constants, uint32_t, LUMO_KM40_CONSTANTS)                                    \
    X(TagType, uint32_t, LUMO_KM40_TAG_TYPES)                                      \
    X(Tag, uint32_t, LUMO_KM40_TAGS)                                               \
    X(Algorithm, uint32_t, LUMO_KM40_ALGORITHMS)                                   \
    X(BlockMode, uint32_t, LUMO_KM40_BLOCK_MODES)                                  \
    X(PaddingMode, uint32_t, LUMO_KM40_PADDING_MODES)                              \
    X(Digest, uint32_t, LUMO_KM40_DIGESTS)                                         \
    X(EcCurve, uint32_t, LUMO_KM40_EC_CURVES)                                      \
    X(KeyOrigin, uint32_t, LUMO_KM40_KEY_ORIGINS)                                  \
    X(KeyBlobUsageRequirements, uint32_t, LUMO_KM40_KEY_BLOB_USAGE_REQUIREMENTS)   \
    X(KeyPurpose, uint32_t, LUMO_KM40_KEY_PURPOSES)                                \
    X(ErrorCode, int32_t, LUMO_KM40_ERROR_CODES)                                   \
    X(KeyDerivationFunction, uint32_t, LUMO_KM40_KEY_DERIVATION_FUNCTIONS)         \
    X(HardwareAuthenticatorType, uint32_t, LUMO_KM40_HARDWARE_AUTHENTICATOR_TYPES) \
    X(SecurityLevel, uint32_t, LUMO_KM40_SECURITY_LEVELS)                          \
    X(KeyFormat, uint32_t, LUMO_KM40_KEY_FORMATS)

namespace android::hardware::keymaster::V4_0 {

typedef uint64_t Timestamp;
typedef uint64_t OperationHandle;

LUMO_KM40_ENUMS(LUMO_HIDL_ENUM)

// The names of the bits that are set: toString<KeyPurpose>(bits).
template <typename Enum>
std::string toString(std::underlying_type_t<Enum> bits) {
    return ::android::hardware::details::bitsToString<Enum>(bits);
}

// No member of these records is initialised by default; `KeyParameter param{}` gives zeros.
struct KeyParameter final {
    union IntegerParams final {
        Algorithm algorithm;
        BlockMode blockMode;
        PaddingMode paddingMode;
        Digest digest;
        EcCurve ecCurve;
        KeyOrigin origin;
        KeyBlobUsageRequirements keyBlobUsageRequirements;
        KeyPurpose purpose;
        KeyDerivationFunction keyDerivationFunction;
        HardwareAuthenticatorType hardwareAuthenticatorType;
        SecurityLevel hardwareType;
        bool boolValue;
        uint32_t integer;
        uint64_t longInteger;
        uint64_t dateTime;
    };

    Tag tag;
    IntegerParams f;
    hidl_vec<uint8_t> blob;
};

// Software first here; the C record has the hardware-enforced list first.
struct KeyCharacteristics final {
    hidl_vec<KeyParameter> softwareEnforced;
    hidl_vec<KeyParameter> hardwareEnforced;
};

struct HardwareAuthToken final {
    uint64_t challenge;
    uint64_t userId;
    uint64_t authenticatorId;
    HardwareAuthenticatorType authenticatorType;
    uint64_t timestamp;
    hidl_vec<uint8_t> mac;
};

struct HmacSharingParameters final {
    hidl_vec<uint8_t> seed;
    hidl_array<uint8_t, 32> nonce;
};

struct VerificationToken final {
    uint64_t challenge;
    uint64_t timestamp;
    hidl_vec<KeyParameter> parametersVerified;
    SecurityLevel securityLevel;
    hidl_vec<uint8_t> mac;
};

static_assert(sizeof(KeyParameter::IntegerParams) == 8, "published layout");
static_assert(sizeof(KeyParameter) == 32 && alignof(KeyParameter) == 8, "published layout");
static_assert(offsetof(KeyParameter, tag) == 0, "published layout");
static_assert(offsetof(KeyParameter, f) == 8, "published layout");
static_assert(offsetof(KeyParameter, blob) == 16, "published layout");
static_assert(sizeof(KeyCharacteristics) == 32, "published layout");
static_assert(offsetof(KeyCharacteristics, softwareEnforced) == 0, "published layout");
static_assert(offsetof(KeyCharacteristics, hardwareEnforced) == 16, "published layout");
static_assert(sizeof(HardwareAuthToken) == 56, "published layout");
static_assert(offsetof(HardwareAuthToken, challenge) == 0, "published layout");
static_assert(offsetof(HardwareAuthToken, userId) == 8, "published layout");
static_assert(offsetof(HardwareAuthToken, authenticatorId) == 16, "published layout");
static_assert(offsetof(HardwareAuthToken, authenticatorType) == 24, "published layout");
static_assert(offsetof(HardwareAuthToken, timestamp) == 32, "published layout");
static_assert(offsetof(HardwareAuthToken, mac) == 40, "published layout");
static_assert(sizeof(HmacSharingParameters) == 48, "published layout");
static_assert(offsetof(HmacSharingParameters, seed) == 0, "published layout");
static_assert(offsetof(HmacSharingParameters, nonce) == 16, "published layout");
static_assert(sizeof(VerificationToken) == 56, "published layout");
static_assert(offsetof(VerificationToken, challenge) == 0, "published layout");
static_assert(offsetof(VerificationToken, timestamp) == 8, "published layout");
static_assert(offsetof(VerificationToken, parametersVerified) == 16, "published layout");
static_assert(offsetof(VerificationToken, securityLevel) == 32, "published layout");
static_assert(offsetof(VerificationToken, mac) == 40, "published layout");

// "{.field = value, ...}"; of the union every member is printed, whichever is meant.
std::string toString(const KeyParameter::IntegerParams& value);
std::string toString(const KeyParameter& value);
std::string toString(const KeyCharacteristics& value);
std::string toString(const HardwareAuthToken& value);
std::string toString(const HmacSharingParameters& value);
std::string toString(const VerificationToken& value);

inline bool operator==(const HardwareAuthToken& a, const HardwareAuthToken& b) {
    return a.challenge == b.challenge && a.userId == b.userId &&
           a.authenticatorId == b.authenticatorId && a.authenticatorType == b.authenticatorType &&
           a.timestamp == b.timestamp && a.mac == b.mac;
}
inline bool operator!=(const HardwareAuthToken& a, const HardwareAuthToken& b) {
    return !(a == b);
}
inline bool operator==(const HmacSharingParameters& a, const HmacSharingParameters& b) {
    return a.seed == b.seed && a.nonce == b.nonce;
}
inline bool operator!=(const HmacSharingParameters& a, const HmacSharingParameters& b) {
    return !(a == b);
}

}  // namespace android::hardware::keymaster::V4_0

namespace android::hardware::details {
#define LUMO_KM40_ENUM_VALUES(Enum, Bits, VALUES) \
    LUMO_HIDL_ENUM_VALUES(keymaster::V4_0::Enum, VALUES)
LUMO_KM40_ENUMS(LUMO_KM40_ENUM_VALUES)
#undef LUMO_KM40_ENUM_VALUES
}  // namespace android::hardware::details
