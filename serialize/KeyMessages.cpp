// The messages of keys.
#include "KeymasterSerialize.h"

#include "Parameters.h"
#include "RequestWriter.h"
#include "ResponseReader.h"

namespace {

using keymasterdevice::bytesOf;
using keymasterdevice::copyBytes;
using keymasterdevice::isPresent;
using keymasterdevice::orEmpty;
using keymasterdevice::RequestWriter;
using keymasterdevice::ResponseReader;

}  // namespace

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
