// The messages of the HMAC key agreement.

#include "KeymasterSerialize.h"
#include "RequestWriter.h"
#include "ResponseReader.h"

using keymasterdevice::RequestWriter;
using keymasterdevice::ResponseReader;

// ---- get_hmac_sharing_parameters; its request has no body ----

// Answer:
//   kHmacSeed
//   kHmacNonce
keymaster_error_t KeymasterSerialize::deserializeClientGetHmacParams(
    keymaster_blob_t response, hmac_sharing_params_t* params) {
    ResponseReader reader(response);
    const keymaster_blob_t seed = reader.bytes(MessageLabel::kHmacSeed);
    const keymaster_blob_t nonce = reader.bytes(MessageLabel::kHmacNonce);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    transport_->km_memscpy(params->seed, sizeof(params->seed), seed.data, seed.data_length);
    transport_->km_memscpy(params->nonce, sizeof(params->nonce), nonce.data, nonce.data_length);
    return KM_ERROR_OK;
}

// ---- compute_shared_hmac ----

// Request:
//   kHmacParams, the records back to back
keymaster_error_t KeymasterSerialize::serializeClientComputeHmacParams(
    std::vector<hmac_sharing_params_t> params, keymaster_blob_t* request) {
    const keymaster_blob_t records = {reinterpret_cast<const uint8_t*>(params.data()),
                                      params.size() * sizeof(hmac_sharing_params_t)};
    RequestWriter writer(request);
    writer.bytes(MessageLabel::kHmacParams, &records);
    return writer.finish();
}

// Answer:
//   kHmacCheck
keymaster_error_t KeymasterSerialize::deserializeClientComputeHmacParams(
    keymaster_blob_t response, std::vector<uint8_t>& sharing_check) {
    ResponseReader reader(response);
    const keymaster_blob_t bytes = reader.bytes(MessageLabel::kHmacCheck);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    sharing_check.insert(sharing_check.end(), bytes.data, bytes.data + bytes.data_length);
    return KM_ERROR_OK;
}
