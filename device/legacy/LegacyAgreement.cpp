// The agreement on an HMAC key among secure applications, over records, and the check of an
// authorization, whose token is authenticated with that key.

#include "BadAlloc.h"
#include "KeymasterHalDevice.h"
#include "LegacyExchange.h"

namespace keymasterdevice {
namespace {

namespace parameters_request {
enum Word : uint32_t { kCommand, kWords };
static_assert(kWords * kWordBytes == 4, "fixed by the protocol");
}  // namespace parameters_request

namespace compute_request {
enum Word : uint32_t { kCommand, kParamsOffset, kNumParams, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace compute_request

// Bytes of the responses, behind the status.
constexpr uint32_t kSeedOffset = 4;
constexpr uint32_t kNonceOffset = kSeedOffset + sizeof(hmac_sharing_params_t::seed);
constexpr uint32_t kSharingCheckOffset = 4;
constexpr uint32_t kSharingCheckBytes = 32;
static_assert(kNonceOffset == 36, "fixed by the protocol");

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

}  // namespace

keymaster_error_t KeymasterHalDevice::legacy_get_hmac_sharing_parameters(
    hmac_sharing_params_t* params) {
    if (params == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kGetHmacSharingParameters, parameters_request::kWords);
    exchange.send();
    const ByteSpan seed = exchange.response().bytes(kSeedOffset, sizeof(params->seed));
    const ByteSpan nonce = exchange.response().bytes(kNonceOffset, sizeof(params->nonce));
    if (!exchange.ok()) return exchange.error();
    exchange.copyTo(params->seed, seed);
    exchange.copyTo(params->nonce, nonce);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterHalDevice::legacy_compute_shared_hmac(
    std::vector<hmac_sharing_params_t> params, std::vector<uint8_t>& sharing_check) {
    if (params.empty()) return KM_ERROR_UNEXPECTED_NULL_POINTER;

    LegacyExchange exchange(channel(), kComputeSharedHmac, compute_request::kWords);
    exchange.setWord(compute_request::kParamsOffset, exchange.offset());
    exchange.setWord(compute_request::kNumParams, narrowLength(params.size()));
    exchange.append(params.data(), params.size() * sizeof(hmac_sharing_params_t));
    exchange.send();
    const ByteSpan check = exchange.response().bytes(kSharingCheckOffset, kSharingCheckBytes);
    if (!exchange.ok()) return exchange.error();
    // Kept: the check value goes behind what the vector holds already.
    return catchBadAlloc([&] {
        sharing_check.insert(sharing_check.end(), check.data, check.data + check.length);
        return KM_ERROR_OK;
    });
}

keymaster_error_t KeymasterHalDevice::LegacyVerifyAuthorization(uint64_t challenge,
                                                                verification_token_t* token) {
    if (kVerifyAuthorization.recordId(channel().strongbox) == kNone) return KM_ERROR_UNIMPLEMENTED;
    if (token == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kVerifyAuthorization, verify_request::kWords);
    exchange.setWords64(verify_request::kChallengeLow, challenge);
    exchange.send();
    LegacyResponse& response = exchange.response();
    const uint64_t response_challenge = response.words64(verify_response::kChallengeLow);
    const uint64_t timestamp = response.words64(verify_response::kTimestampLow);
    const uint32_t level = response.word(verify_response::kSecurityLevel);
    const ByteSpan mac = response.bytes(verify_response::kMacOffset, sizeof(token->mac));
    if (!exchange.ok()) return exchange.error();

    token->challenge = response_challenge;
    token->timestamp = timestamp;
    token->security_level = level;
    exchange.copyTo(token->mac, mac);
    return KM_ERROR_OK;
}

}  // namespace keymasterdevice
