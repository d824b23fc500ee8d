// The agreement on an HMAC key among secure applications, over CBOR.

#include <utility>

#include "CborCommands.h"
#include "CborExchange.h"

namespace keymasterdevice::cbor {

keymaster_error_t get_hmac_sharing_parameters(const Channel& channel,
                                              hmac_sharing_params_t* params) {
    if (params == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    CborExchange exchange(channel, kGetHmacSharingParameters);
    exchange.encodeNothing();
    exchange.send();
    exchange.decode(&KeymasterSerialize::deserializeClientGetHmacParams, params);
    return exchange.error();
}

keymaster_error_t compute_shared_hmac(const Channel& channel,
                                      std::vector<hmac_sharing_params_t> params,
                                      std::vector<uint8_t>& sharing_check) {
    CborExchange exchange(channel, kComputeSharedHmac);
    exchange.encode(&KeymasterSerialize::serializeClientComputeHmacParams, std::move(params));
    exchange.send();
    exchange.decode(&KeymasterSerialize::deserializeClientComputeHmacParams, sharing_check);
    return exchange.error();
}

}  // namespace keymasterdevice::cbor
