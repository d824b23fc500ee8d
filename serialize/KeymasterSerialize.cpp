#include "KeymasterSerialize.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "Limits.h"
#include "Parameters.h"
#include "RequestWriter.h"
#include "ResponseReader.h"

namespace {

using keymasterdevice::bytesOf;
using keymasterdevice::copyBytes;
using keymasterdevice::isPresent;
using keymasterdevice::kMaxCertificates;
using keymasterdevice::kMaxInputBytes;
using keymasterdevice::orEmpty;
using keymasterdevice::ParamSetHolder;
using keymasterdevice::RequestWriter;
using keymasterdevice::ResponseReader;
using keymasterdevice::storeOutput;
using keymasterdevice::storeParams;

using ChainHolder =
    std::unique_ptr<keymaster_cert_chain_t, keymasterdevice::CertificateChain_Delete>;

}  // namespace

void KeymasterSerialize::addParams(const keymaster_key_param_t* param,
                                   QCBOREncodeContext* encoder) {
    keymasterdevice::addParam(*param, encoder);
}

keymaster_error_t KeymasterSerialize::parseParams(CborReader* reader, keymaster_key_param_t* out) {
    return keymasterdevice::parseParam(reader, transport_, out);
}

// ---- Key management ----

keymaster_error_t KeymasterSerialize::serializeClientParams(const keymaster_key_param_set_t* params,
                                                            keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientKeyblob(keymaster_blob_t response,
                                                               keymaster_key_blob_t* key_blob) {
    ResponseReader reader(response);
    const keymaster_blob_t bytes = reader.bytes(MessageLabel::kKeyBlob);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *key_blob = {copyBytes(transport_, bytes).release(), bytes.data_length};
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientKeyblob(const keymaster_key_blob_t* key_blob,
                                                             keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.bytes(MessageLabel::kKeyBlob, orEmpty(key_blob));
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::serializeClientParamsKeyblob(
    const keymaster_key_param_set_t* params, const keymaster_key_blob_t* key_blob,
    keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.bytes(MessageLabel::kKeyBlob, orEmpty(key_blob));
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::serializeClientImpKey(const keymaster_key_param_set_t* params,
                                                            keymaster_key_format_t format,
                                                            const keymaster_blob_t* key_data,
                                                            keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.number(MessageLabel::kKeyFormat, format);
    writer.bytes(MessageLabel::kKeyData, orEmpty(key_data));
    return writer.finish();
}

// The vectors come by value so that the key material goes with the encoding.
// NOLINTBEGIN(performance-unnecessary-value-param)
keymaster_error_t KeymasterSerialize::serializeClientSecureImportKey(
    const keymaster_key_param_set_t* params, uint64_t password_sid, uint64_t biometric_sid,
    std::vector<uint8_t> wrapped_key_data, std::vector<uint8_t> wrapping_key_blob,
    std::vector<uint8_t> masking_key, keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.number(MessageLabel::kPasswordSid, password_sid);
    writer.number(MessageLabel::kBiometricSid, biometric_sid);
    // Kept: these three are not in the order of their labels.
    writer.bytes(MessageLabel::kWrappedKeyData, bytesOf(wrapped_key_data));
    writer.bytes(MessageLabel::kWrappingKeyBlob, bytesOf(wrapping_key_blob));
    writer.bytes(MessageLabel::kMaskingKey, bytesOf(masking_key));
    return writer.finish();
}
// NOLINTEND(performance-unnecessary-value-param)

keymaster_error_t KeymasterSerialize::serializeClientExpKey(keymaster_key_format_t format,
                                                            const keymaster_key_blob_t* key_blob,
                                                            const keymaster_blob_t* client_id,
                                                            const keymaster_blob_t* app_data,
                                                            keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.number(MessageLabel::kParamCount,
                  (isPresent(client_id) ? 1U : 0U) + (isPresent(app_data) ? 1U : 0U));
    keymaster_key_param_t record = {};  // KM_TAG_INVALID, which no request may carry
    if (isPresent(client_id)) {
        record =
            keymaster_param_blob(KM_TAG_APPLICATION_ID, client_id->data, client_id->data_length);
        writer.param(record);
    }
    // Kept: the application data is never loaded. The client id goes out twice in its place, and a
    // request with application data alone does not encode.
    if (isPresent(app_data)) writer.param(record);
    writer.bytes(MessageLabel::kKeyBlob, orEmpty(key_blob));
    writer.number(MessageLabel::kKeyFormat, format);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientExpKey(keymaster_blob_t response,
                                                              keymaster_blob_t* export_data) {
    ResponseReader reader(response);
    const keymaster_blob_t bytes = reader.bytes(MessageLabel::kOutput);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *export_data = {copyBytes(transport_, bytes).release(), bytes.data_length};
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientAttestKey(
    const keymaster_key_param_set_t* params, const keymaster_key_blob_t* key_blob, tztm active,
    tztm expire, keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.bytes(MessageLabel::kKeyBlob, orEmpty(key_blob));
    writer.date(MessageLabel::kActiveDate, active);
    writer.date(MessageLabel::kExpireDate, expire);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientAttestKey(
    keymaster_blob_t response, keymaster_cert_chain_t* cert_chain) {
    ResponseReader reader(response);
    const uint32_t count = reader.number32(MessageLabel::kCertCount);
    if (count > kMaxCertificates) throw std::bad_alloc();

    ChainHolder chain(new keymaster_cert_chain_t{nullptr, 0});
    // More than the response has bytes cannot be there: the reader stops at a missing one.
    const size_t room = std::min<size_t>(count, reader.size());
    chain->entries = new keymaster_blob_t[room]();
    chain->entry_count = room;
    for (size_t i = 0; i < room && reader.ok(); ++i) {
        const keymaster_blob_t bytes = reader.bytes(MessageLabel::kCert);
        chain->entries[i] = {copyBytes(transport_, bytes).release(), bytes.data_length};
    }
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *cert_chain = *chain;
    *chain = {nullptr, 0};
    return KM_ERROR_OK;
}

// ---- Operations ----

keymaster_error_t KeymasterSerialize::serializeClientBegin(keymaster_purpose_t purpose,
                                                           const keymaster_key_param_set_t* params,
                                                           const keymaster_key_blob_t* key_blob,
                                                           keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params, 1);
    writer.param(keymaster_param_enum(KM_TAG_PURPOSE, purpose));
    writer.bytes(MessageLabel::kKeyBlob, orEmpty(key_blob));
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientBegin(keymaster_blob_t response,
                                                             keymaster_key_param_set_t* out_params,
                                                             uint64_t* op_handle) {
    ResponseReader reader(response);
    ParamSetHolder params;
    keymaster_error_t result = readParams(transport_, reader, out_params, &params);
    if (result != KM_ERROR_OK) return result;
    const uint64_t handle = reader.number64(MessageLabel::kOperationHandle);
    result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *op_handle = handle;
    storeParams(std::move(params), out_params);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientUpdate(uint64_t op_handle,
                                                            const keymaster_key_param_set_t* params,
                                                            const keymaster_blob_t* input,
                                                            keymaster_blob_t* request) {
    keymaster_blob_t taken = orEmpty(input);
    taken.data_length = std::min(taken.data_length, kMaxInputBytes);
    RequestWriter writer(request);
    writer.number(MessageLabel::kOperationHandle, op_handle);
    writer.optionalParams(params);
    writer.optionalBytes(MessageLabel::kInput, &taken);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientUpdate(keymaster_blob_t response,
                                                              keymaster_key_param_set_t* out_params,
                                                              keymaster_blob_t* output,
                                                              uint32_t* input_consumed) {
    ResponseReader reader(response);
    ParamSetHolder params;
    keymaster_error_t result = readParams(transport_, reader, out_params, &params);
    if (result != KM_ERROR_OK) return result;
    const keymaster_blob_t bytes = reader.optionalBytes(MessageLabel::kOutput);
    const uint32_t consumed = reader.number32(MessageLabel::kInputConsumed);
    result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    storeOutput(transport_, bytes, output);
    *input_consumed = consumed;
    storeParams(std::move(params), out_params);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientFinish(uint64_t op_handle,
                                                            const keymaster_key_param_set_t* params,
                                                            const keymaster_blob_t* input,
                                                            const keymaster_blob_t* signature,
                                                            keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.number(MessageLabel::kOperationHandle, op_handle);
    writer.optionalParams(params);
    writer.optionalBytes(MessageLabel::kInput, input);
    writer.optionalBytes(MessageLabel::kSignature, signature);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientFinish(keymaster_blob_t response,
                                                              keymaster_key_param_set_t* out_params,
                                                              keymaster_blob_t* output) {
    ResponseReader reader(response);
    ParamSetHolder params;
    keymaster_error_t result = readParams(transport_, reader, out_params, &params);
    if (result != KM_ERROR_OK) return result;
    const keymaster_blob_t bytes = reader.optionalBytes(MessageLabel::kOutput);
    result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    storeOutput(transport_, bytes, output);
    storeParams(std::move(params), out_params);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientAbort(uint64_t op_handle,
                                                           keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.number(MessageLabel::kOperationHandle, op_handle);
    return writer.finish();
}

// ---- Device ids, HMAC agreement, device lock ----

keymaster_error_t KeymasterSerialize::serializeClientDestroyDeviceIds(bool flag,
                                                                      keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.flag(MessageLabel::kDestroyDeviceIds, flag);
    return writer.finish();
}

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

keymaster_error_t KeymasterSerialize::serializeClientComputeHmacParams(
    std::vector<hmac_sharing_params_t> params, keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.bytes(MessageLabel::kHmacParams, {reinterpret_cast<const uint8_t*>(params.data()),
                                             params.size() * sizeof(hmac_sharing_params_t)});
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientComputeHmacParams(
    keymaster_blob_t response, std::vector<uint8_t>& sharing_check) {
    ResponseReader reader(response);
    const keymaster_blob_t bytes = reader.bytes(MessageLabel::kHmacCheck);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    sharing_check.insert(sharing_check.end(), bytes.data, bytes.data + bytes.data_length);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientSetDeviceLocked(bool flag,
                                                                     keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.flag(MessageLabel::kDeviceLocked, flag);
    return writer.finish();
}
