// The state of the device over records: patch levels, and root of trust and boot state, which are
// delivered early at boot.

#include <algorithm>

#include "KeymasterHalDevice.h"
#include "LegacyExchange.h"
#include "Log.h"

namespace keymasterdevice {
namespace {

namespace configure_request {
enum Word : uint32_t { kCommand, kParamsOffset, kNumParams, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace configure_request

namespace date_support_request {
// The last two words are sent as the shared buffer held them.
enum Word : uint32_t { kCommand, kUnused1, kUnused2, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace date_support_request

constexpr uint32_t kRootOfTrustBytes = 32;

namespace rot_request {
enum Word : uint32_t { kCommand, kRootOffset, kRootBytes, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace rot_request

namespace state_request {
enum Word : uint32_t { kCommand, kZero, kBodyOffset, kBodyBytes, kWords };
static_assert(kWords * kWordBytes == 16, "fixed by the protocol");
}  // namespace state_request

// Kept: only four bytes of the boot state travel, then filler of 0xFF bytes.
namespace state_body {
enum Word : uint32_t {
    kLocked,
    kBootState,
    kFiller,
    kColor = kFiller + 7,
    kSystemVersion,
    kSystemPatchlevel,
    kWords,
};
constexpr uint32_t kBytes = kWords * kWordBytes;
static_assert(kColor * kWordBytes == 36 && kBytes == 48, "fixed by the protocol");
}  // namespace state_body

}  // namespace

keymaster_error_t KeymasterHalDevice::legacy_configure(const keymaster_key_param_set_t* params) {
    LegacyExchange exchange(channel(), kConfigure, configure_request::kWords);
    exchange.addOptionalParams(configure_request::kParamsOffset, params);
    exchange.send();
    return exchange.error();
}

keymaster_error_t KeymasterHalDevice::legacy_get_date_support(bool* supported) {
    if (supported == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kGetDateSupport, date_support_request::kWords);
    exchange.transmit();
    if (exchange.statusIs(KM_ERROR_INVALID_TAG)) {
        KM_LOG_ERROR(kDeviceLogTag, "Keymaster does not support date for security patch level");
        *supported = false;
        return KM_ERROR_OK;
    }
    exchange.checkStatus();
    if (exchange.ok()) *supported = true;
    return exchange.error();
}

keymaster_error_t KeymasterHalDevice::LegacySetRot(uint8_t* root_of_trust, uint8_t* /*unused*/,
                                                   bool locked, uint8_t* boot_state,
                                                   _km_boot_state_color_t color,
                                                   uint32_t system_version,
                                                   uint32_t system_patchlevel) {
    if (root_of_trust == nullptr || boot_state == nullptr) return KM_ERROR_UNEXPECTED_NULL_POINTER;

    LegacyExchange rot(channel(), kSetRot, rot_request::kWords);
    rot.addItem(rot_request::kRootOffset, root_of_trust, kRootOfTrustBytes);
    rot.send();
    if (!rot.ok()) return rot.error();

    // Kept: the second request is appended through the first one's builder, so its body lands
    // behind the first request, at offset 60, while its header says 16.
    LegacyExchange state(channel(), kSetBootState, state_request::kWords, &rot);
    state.setWord(state_request::kZero, 0);
    state.setWord(state_request::kBodyOffset, state_request::kWords * kWordBytes);
    state.setWord(state_request::kBodyBytes, state_body::kBytes);

    uint8_t body_bytes[state_body::kBytes];
    std::fill_n(body_bytes, sizeof(body_bytes), uint8_t{0xFF});
    LegacyRecord body(body_bytes);
    body.setWord(state_body::kLocked, locked ? 1 : 0);
    std::copy_n(boot_state, kWordBytes, body_bytes + state_body::kBootState * kWordBytes);
    body.setWord(state_body::kColor, enumToBits(color));
    body.setWord(state_body::kSystemVersion, system_version);
    body.setWord(state_body::kSystemPatchlevel, system_patchlevel);
    state.append(body_bytes, sizeof(body_bytes));
    state.send();
    return state.error();
}

}  // namespace keymasterdevice
