// The clear part of hostile key blobs, read by both rules.
//
// Input: the blob. Beyond not crashing: success gives both sets, as long as the blob declares, and
// no authorization that its version does not have; a blob shorter than its version's fields is
// refused; an error never gives the second set; where both rules succeed they agree.

#include "KeyBlobReader.h"
#include "LogCapture.h"
#include "Outputs.h"
#include "PlatformTags.h"

namespace {

using keymasterdevice::EarlyBootRule;
using lumo::fuzz::Outputs;

// Reads a little-endian number from its last byte on.
uint64_t numberAt(const uint8_t* blob, size_t offset, size_t width) {
    uint64_t value = 0;
    while (width-- > 0) value = value << 8 | blob[offset + width];
    return value;
}

constexpr uint64_t version(uint64_t major, uint64_t minor) {
    return major << 32 | minor;
}

bool hasEarlyBoot(uint64_t number, EarlyBootRule rule) {
    return rule == EarlyBootRule::kRead && number > version(4, 2) && number != version(4, 3);
}

bool belongs(keymaster_tag_t tag, uint64_t number, EarlyBootRule rule) {
    using namespace keymasterdevice;  // NOLINT(google-build-using-namespace): its tags
    const bool from_4_1 = number >= version(4, 1);
    switch (int64_t{tag}) {  // some are not enumerators
        case KM_TAG_ROLLBACK_RESISTANT:
            return !from_4_1;
        case kTagRollbackResistance:
        case kTagHardwareType:
        case kTagBootPatchlevel:
        case kTagVendorPatchlevel:
        case kTagTrustedUserPresenceRequired:
        case KM_TAG_TRUSTED_CONFIRMATION_REQUIRED:
        case KM_TAG_UNLOCKED_DEVICE_REQUIRED:
            return from_4_1;
        case kTagEarlyBootOnly:
            return hasEarlyBoot(number, rule);
        default:
            return true;
    }
}

void requireDeclared(const keymaster_key_param_set_t& set, uint64_t declared, uint64_t number,
                     EarlyBootRule rule) {
    REQUIRE(set.params != nullptr && set.length == declared);
    for (size_t i = 0; i < set.length; ++i) REQUIRE(belongs(set.params[i].tag, number, rule));
}

// Whether the blob could be read.
bool read(const uint8_t* blob, size_t size, EarlyBootRule rule, Outputs& out) {
    const keymaster_error_t error =
        keymasterdevice::readCharacteristics({blob, size}, rule, &out.characteristics);
    const keymaster_key_characteristics_t& sets = out.characteristics;
    if (error != KM_ERROR_OK) {
        REQUIRE(sets.sw_enforced.params == nullptr && sets.sw_enforced.length == 0);
        return false;
    }
    REQUIRE(size >= 319);
    const uint64_t number = numberAt(blob, 8, 8);
    REQUIRE(number < version(4, 1) || size >= 345);
    REQUIRE(!hasEarlyBoot(number, rule) || size >= 352);
    requireDeclared(sets.hw_enforced, numberAt(blob, 24, 4), number, rule);
    requireDeclared(sets.sw_enforced, numberAt(blob, 273, 4), number, rule);
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const lumo::test::LogCapture log;
    Outputs with;
    Outputs without;
    const bool both = read(data, size, EarlyBootRule::kRead, with) &&
                      read(data, size, EarlyBootRule::kIgnore, without);
    if (!both) return 0;
    const keymaster_key_param_set_t& set = with.characteristics.hw_enforced;
    for (size_t i = 0; i < set.length; ++i) {
        REQUIRE(set.params[i].tag == without.characteristics.hw_enforced.params[i].tag);
    }
    return 0;
}
