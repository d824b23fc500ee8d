// The messages of operations.
#include <algorithm>
#include <utility>

#include "KeymasterSerialize.h"
#include "Limits.h"
#include "Parameters.h"
#include "RequestWriter.h"
#include "ResponseReader.h"

namespace {

using keymasterdevice::kMaxInputBytes;
using keymasterdevice::orEmpty;
using keymasterdevice::ParamSetHolder;
using keymasterdevice::RequestWriter;
using keymasterdevice::ResponseReader;
using keymasterdevice::storeOutput;
using keymasterdevice::storeParams;

}  // namespace

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
