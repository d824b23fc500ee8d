// Authorization checks and the probe for dates in patch levels; used on either protocol.

#include <KeymasterUtils.h>

#include "KeymasterHalDevice.h"
#include "LegacyExchange.h"

namespace keymasterdevice {
namespace {

namespace verify_request {
enum Word : uint32_t { kCommand, kChallengeLow, kChallengeHigh, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace verify_request

namespace verify_response {
enum Word : uint32_t {
    kStatus,
    kChallengeLow,
    kChallengeHigh,
    kTimestampLow,
    kTimestampHigh,
    kSecurityLevel,
    kMac,
};
constexpr uint32_t kMacOffset = kMac * kWordBytes;
static_assert(kMacOffset == 24, "fixed by the protocol");
}  // namespace verify_response

namespace date_support_request {
// The last two words are sent as the shared buffer held them.
enum Word : uint32_t { kCommand, kUnused1, kUnused2, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace date_support_request

}  // namespace

keymaster_error_t KeymasterHalDevice::LegacyVerifyAuthorization(uint64_t challenge,
                                                                verification_token_t* token) {
    if (kVerifyAuthorization.recordId(channel().strongbox) == kNone) return KM_ERROR_UNIMPLEMENTED;
    if (token == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kVerifyAuthorization, verify_request::kWords);
    exchange.setWords64(verify_request::kChallengeLow, challenge);
    const keymaster_error_t error = exchange.send();
    if (error != KM_ERROR_OK) return error;

    LegacyResponse& response = exchange.response();
    const uint64_t answered_challenge = response.words64(verify_response::kChallengeLow);
    const uint64_t timestamp = response.words64(verify_response::kTimestampLow);
    const uint32_t level = response.word(verify_response::kSecurityLevel);
    const ByteSpan mac = response.bytes(verify_response::kMacOffset, sizeof(token->mac));
    if (!response.ok()) return KM_ERROR_UNKNOWN_ERROR;

    token->challenge = answered_challenge;
    token->timestamp = timestamp;
    token->security_level = level;
    copyOut(*transport_, token->mac, mac);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterHalDevice::legacy_get_date_support(bool* supported) {
    if (supported == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kGetDateSupport, date_support_request::kWords);
    keymaster_error_t error = exchange.transmit();
    if (error != KM_ERROR_OK) return error;
    if (exchange.answered(KM_ERROR_INVALID_TAG)) {
        KM_LOG_ERROR(kDeviceLogTag, "Keymaster does not support date for security patch level");
        *supported = false;
        return KM_ERROR_OK;
    }
    error = exchange.judge();
    if (error == KM_ERROR_OK) *supported = true;
    return error;
}

}  // namespace keymasterdevice
