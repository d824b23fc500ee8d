// The messages of keys. Answers are read in the order of their entries.

#include "EnumBits.h"
#include "KeymasterSerialize.h"
#include "Memory.h"
#include "Presence.h"
#include "RequestWriter.h"
#include "ResponseReader.h"

using keymasterdevice::copyForCaller;
using keymasterdevice::enumToBits;
using keymasterdevice::isPresent;
using keymasterdevice::RequestWriter;
using keymasterdevice::ResponseReader;
using keymasterdevice::WipeVectorAtExit;

// ---- A key blob alone ----

// delete_key:
//   kKeyBlob
keymaster_error_t KeymasterSerialize::serializeClientKeyblob(const keymaster_key_blob_t* key_blob,
                                                             keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.bytes(MessageLabel::kKeyBlob, key_blob);
    return writer.finish();
}

// Answer to generate_key, import_key, import_wrapped_key, upgrade_key:
//   kKeyBlob
keymaster_error_t KeymasterSerialize::deserializeClientKeyblob(keymaster_blob_t response,
                                                               keymaster_key_blob_t* key_blob) {
    ResponseReader reader(response);
    const keymaster_blob_t bytes = reader.bytes(MessageLabel::kKeyBlob);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    const keymaster_blob_t copy = copyForCaller(transport_, bytes);
    *key_blob = {copy.data, copy.data_length};
    return KM_ERROR_OK;
}

// ---- Requests for a key blob ----

// configure, generate_key:
//   kParamCount, the parameters
keymaster_error_t KeymasterSerialize::serializeClientParams(const keymaster_key_param_set_t* params,
                                                            keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    return writer.finish();
}

// upgrade_key:
//   kParamCount, the parameters
//   kKeyBlob
keymaster_error_t KeymasterSerialize::serializeClientParamsKeyblob(
    const keymaster_key_param_set_t* params, const keymaster_key_blob_t* key_blob,
    keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.bytes(MessageLabel::kKeyBlob, key_blob);
    return writer.finish();
}

// import_key:
//   kParamCount, the parameters
//   kKeyFormat
//   kKeyData
keymaster_error_t KeymasterSerialize::serializeClientImpKey(const keymaster_key_param_set_t* params,
                                                            keymaster_key_format_t format,
                                                            const keymaster_blob_t* key_data,
                                                            keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.number(MessageLabel::kKeyFormat, enumToBits(format));
    writer.bytes(MessageLabel::kKeyData, key_data);
    return writer.finish();
}

// import_wrapped_key:
//   kParamCount, the unwrapping parameters
//   kPasswordSid
//   kBiometricSid
//   kWrappedKeyData
//   kWrappingKeyBlob
//   kMaskingKey
// The vectors come by value so that the masking key can be wiped here.
// NOLINTBEGIN(performance-unnecessary-value-param)
keymaster_error_t KeymasterSerialize::serializeClientSecureImportKey(
    const keymaster_key_param_set_t* params, uint64_t password_sid, uint64_t biometric_sid,
    std::vector<uint8_t> wrapped_key_data, std::vector<uint8_t> wrapping_key_blob,
    std::vector<uint8_t> masking_key, keymaster_blob_t* request) {
    const WipeVectorAtExit wiped(masking_key);
    RequestWriter writer(request);
    writer.params(params);
    writer.number(MessageLabel::kPasswordSid, password_sid);
    writer.number(MessageLabel::kBiometricSid, biometric_sid);
    // Kept: these three are not in the order of their labels.
    writer.bytes(MessageLabel::kWrappedKeyData, wrapped_key_data);
    writer.bytes(MessageLabel::kWrappingKeyBlob, wrapping_key_blob);
    writer.bytes(MessageLabel::kMaskingKey, masking_key);
    return writer.finish();
}
// NOLINTEND(performance-unnecessary-value-param)

// ---- export_key ----

// Request:
//   kParamCount, up to two parameters
//   kKeyBlob
//   kKeyFormat
keymaster_error_t KeymasterSerialize::serializeClientExpKey(keymaster_key_format_t format,
                                                            const keymaster_key_blob_t* key_blob,
                                                            const keymaster_blob_t* client_id,
                                                            const keymaster_blob_t* app_data,
                                                            keymaster_blob_t* request) {
    keymaster_key_param_t param = {};  // KM_TAG_INVALID, which no request may carry
    if (isPresent(client_id)) {
        param =
            keymaster_param_blob(KM_TAG_APPLICATION_ID, client_id->data, client_id->data_length);
    }
    RequestWriter writer(request);
    writer.number(MessageLabel::kParamCount,
                  (isPresent(client_id) ? 1U : 0U) + (isPresent(app_data) ? 1U : 0U));
    if (isPresent(client_id)) writer.param(param);
    // Kept: the application data is never loaded. The client id goes out twice in its place, and a
    // request with application data alone does not encode.
    if (isPresent(app_data)) writer.param(param);
    writer.bytes(MessageLabel::kKeyBlob, key_blob);
    writer.number(MessageLabel::kKeyFormat, enumToBits(format));
    return writer.finish();
}

// Answer:
//   kOutput, the exported key
keymaster_error_t KeymasterSerialize::deserializeClientExpKey(keymaster_blob_t response,
                                                              keymaster_blob_t* export_data) {
    ResponseReader reader(response);
    const keymaster_blob_t bytes = reader.bytes(MessageLabel::kOutput);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *export_data = copyForCaller(transport_, bytes);
    return KM_ERROR_OK;
}
