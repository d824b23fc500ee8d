// The messages of operations. Answers are read in the order of their entries.

#include <algorithm>

#include "EnumBits.h"
#include "KeymasterSerialize.h"
#include "Limits.h"
#include "Parameters.h"
#include "Presence.h"
#include "RequestWriter.h"
#include "ResponseReader.h"

using keymasterdevice::copyForCaller;
using keymasterdevice::enumToBits;
using keymasterdevice::isPresent;
using keymasterdevice::kMaxInputBytes;
using keymasterdevice::RequestWriter;
using keymasterdevice::ResponseParams;
using keymasterdevice::ResponseReader;

namespace {

// An output of no bytes stays as the caller cleared it; without a place for it, it is dropped.
void storeOutput(keymasterutils::KeymasterUtils* transport, const keymaster_blob_t& bytes,
                 keymaster_blob_t* output) {
    if (output != nullptr && isPresent(&bytes)) *output = copyForCaller(transport, bytes);
}

}  // namespace

// ---- begin_operation ----

// Request:
//   kParamCount, the parameters and the purpose as one more
//   kKeyBlob
keymaster_error_t KeymasterSerialize::serializeClientBegin(keymaster_purpose_t purpose,
                                                           const keymaster_key_param_set_t* params,
                                                           const keymaster_key_blob_t* key_blob,
                                                           keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params, 1);
    writer.param(keymaster_param_enum(KM_TAG_PURPOSE, enumToBits(purpose)));
    writer.bytes(MessageLabel::kKeyBlob, key_blob);
    return writer.finish();
}

// Answer:
//   kParamCount, the parameters; optional
//   kOperationHandle
keymaster_error_t KeymasterSerialize::deserializeClientBegin(keymaster_blob_t response,
                                                             keymaster_key_param_set_t* out_params,
                                                             uint64_t* op_handle) {
    ResponseReader reader(response);
    ResponseParams params;
    keymaster_error_t result = params.read(reader, transport_, out_params);
    if (result != KM_ERROR_OK) return result;
    const uint64_t handle = reader.number64(MessageLabel::kOperationHandle);
    result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *op_handle = handle;
    params.moveTo(out_params);
    return KM_ERROR_OK;
}

// ---- update_operation ----

// Request:
//   kOperationHandle
//   kParamCount, the parameters; optional
//   kInput, its first 16384 bytes at most; optional
keymaster_error_t KeymasterSerialize::serializeClientUpdate(uint64_t op_handle,
                                                            const keymaster_key_param_set_t* params,
                                                            const keymaster_blob_t* input,
                                                            keymaster_blob_t* request) {
    keymaster_blob_t first = {nullptr, 0};
    if (isPresent(input)) first = {input->data, std::min(input->data_length, kMaxInputBytes)};
    RequestWriter writer(request);
    writer.number(MessageLabel::kOperationHandle, op_handle);
    writer.optionalParams(params);
    writer.optionalBytes(MessageLabel::kInput, &first);
    return writer.finish();
}

// Answer:
//   kParamCount, the parameters; optional
//   kOutput; optional
//   kInputConsumed
keymaster_error_t KeymasterSerialize::deserializeClientUpdate(keymaster_blob_t response,
                                                              keymaster_key_param_set_t* out_params,
                                                              keymaster_blob_t* output,
                                                              uint32_t* input_consumed) {
    ResponseReader reader(response);
    ResponseParams params;
    keymaster_error_t result = params.read(reader, transport_, out_params);
    if (result != KM_ERROR_OK) return result;
    const keymaster_blob_t bytes = reader.optionalBytes(MessageLabel::kOutput);
    const uint32_t consumed = reader.number32(MessageLabel::kInputConsumed);
    result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    storeOutput(transport_, bytes, output);
    *input_consumed = consumed;
    params.moveTo(out_params);
    return KM_ERROR_OK;
}

// ---- finish_operation ----

// Request:
//   kOperationHandle
//   kParamCount, the parameters; optional
//   kInput, all of it; optional
//   kSignature; optional
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

// Answer:
//   kParamCount, the parameters; optional
//   kOutput; optional
keymaster_error_t KeymasterSerialize::deserializeClientFinish(keymaster_blob_t response,
                                                              keymaster_key_param_set_t* out_params,
                                                              keymaster_blob_t* output) {
    ResponseReader reader(response);
    ResponseParams params;
    keymaster_error_t result = params.read(reader, transport_, out_params);
    if (result != KM_ERROR_OK) return result;
    const keymaster_blob_t bytes = reader.optionalBytes(MessageLabel::kOutput);
    result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    storeOutput(transport_, bytes, output);
    params.moveTo(out_params);
    return KM_ERROR_OK;
}

// ---- abort_operation ----

//   kOperationHandle
keymaster_error_t KeymasterSerialize::serializeClientAbort(uint64_t op_handle,
                                                           keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.number(MessageLabel::kOperationHandle, op_handle);
    return writer.finish();
}
