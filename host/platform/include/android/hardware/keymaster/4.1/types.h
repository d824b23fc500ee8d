#pragma once

// Stand-in for the types of android.hardware.keymaster@4.1: two enumerations that repeat those of
// 4.0 and add to them. Everything else, KeyParameter::tag included, stays a type of 4.0.

#include <android/hardware/keymaster/4.0/types.h>

#define LUMO_KM41_TAGS(X)                                    \
    LUMO_KM40_TAGS(X)                                        \
    X(EARLY_BOOT_ONLY, V4_0::TagType::BOOL | 305U)           \
    X(DEVICE_UNIQUE_ATTESTATION, V4_0::TagType::BOOL | 720U) \
    X(IDENTITY_CREDENTIAL_KEY, V4_0::TagType::BOOL | 721U)   \
    X(STORAGE_KEY, V4_0::TagType::BOOL | 722U)

#define LUMO_KM41_ERROR_CODES(X)             \
    LUMO_KM40_ERROR_CODES(X)                 \
    X(EARLY_BOOT_ENDED, -73)                 \
    X(ATTESTATION_KEYS_NOT_PROVISIONED, -74) \
    X(ATTESTATION_IDS_NOT_PROVISIONED, -75)  \
    X(INVALID_OPERATION, -76)                \
    X(STORAGE_KEY_UNSUPPORTED, -77)

#define LUMO_KM41_ENUMS(X)           \
    X(Tag, uint32_t, LUMO_KM41_TAGS) \
    X(ErrorCode, int32_t, LUMO_KM41_ERROR_CODES)

namespace android::hardware::keymaster::V4_1 {

LUMO_KM41_ENUMS(LUMO_HIDL_ENUM)

template <typename Enum>
std::string toString(std::underlying_type_t<Enum> bits) {
    return ::android::hardware::details::bitsToString<Enum>(bits);
}

}  // namespace android::hardware::keymaster::V4_1

namespace android::hardware::details {
#define LUMO_KM41_ENUM_VALUES(Enum, Bits, VALUES) \
    LUMO_HIDL_ENUM_VALUES(keymaster::V4_1::Enum, VALUES)
LUMO_KM41_ENUMS(LUMO_KM41_ENUM_VALUES)
#undef LUMO_KM41_ENUM_VALUES
}  // namespace android::hardware::details
