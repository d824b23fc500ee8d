#include <android/hardware/keymaster/4.0/types.h>
#include <android/hardware/keymaster/4.1/types.h>
#include <inttypes.h>
#include <stdio.h>

// Apart from the records and the interfaces: a program that only names values needs nothing of
// Debian's Android libraries.

namespace android::hardware {

std::string details::hexString(uint64_t bits) {
    char text[2 + 16 + 1];
    snprintf(text, sizeof(text), "0x%" PRIx64, bits);
    return text;
}

namespace keymaster::V4_0 {
LUMO_KM40_ENUMS(LUMO_HIDL_ENUM_TO_STRING)
}  // namespace keymaster::V4_0

namespace keymaster::V4_1 {
LUMO_KM41_ENUMS(LUMO_HIDL_ENUM_TO_STRING)
}  // namespace keymaster::V4_1

}  // namespace android::hardware
