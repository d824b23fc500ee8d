// The agreement of an HMAC key among secure applications.

#include <KeymasterUtils.h>

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

}  // namespace

keymaster_error_t KeymasterHalDevice::legacy_get_hmac_sharing_parameters(
    hmac_sharing_params_t* params) {
    if (params == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    LegacyExchange exchange(channel(), kGetHmacSharingParameters, parameters_request::kWords);
    const keymaster_error_t error = exchange.send();
    if (error != KM_ERROR_OK) return error;

    LegacyResponse& response = exchange.response();
    const ByteSpan seed = response.bytes(kSeedOffset, sizeof(params->seed));
    const ByteSpan nonce = response.bytes(kNonceOffset, sizeof(params->nonce));
    if (!response.ok()) return KM_ERROR_UNKNOWN_ERROR;
    copyOut(*transport_, params->seed, seed);
    copyOut(*transport_, params->nonce, nonce);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterHalDevice::legacy_compute_shared_hmac(
    std::vector<hmac_sharing_params_t> params, std::vector<uint8_t>& sharing_check) {
    if (params.empty()) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    LegacyExchange exchange(channel(), kComputeSharedHmac, compute_request::kWords);
    exchange.setWord(compute_request::kParamsOffset, exchange.offset());
    exchange.setWord(compute_request::kNumParams, narrowLength(params.size()));
    exchange.append(params.data(), params.size() * sizeof(hmac_sharing_params_t));
    const keymaster_error_t error = exchange.send();
    if (error != KM_ERROR_OK) return error;

    const ByteSpan check = exchange.response().bytes(kSharingCheckOffset, kSharingCheckBytes);
    if (!exchange.response().ok()) return KM_ERROR_UNKNOWN_ERROR;
    // Kept: the check value goes behind what the vector holds already.
    return catchBadAlloc([&] {
        sharing_check.insert(sharing_check.end(), check.data, check.data + check.length);
        return KM_ERROR_OK;
    });
}

}  // namespace keymasterdevice
