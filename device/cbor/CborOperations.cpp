// Operations over CBOR: begin, update, finish and abort.

#include "CborCommands.h"
#include "CborExchange.h"
#include "Outputs.h"
#include "Presence.h"

namespace keymasterdevice::cbor {

keymaster_error_t begin_operation(const Channel& channel, keymaster_purpose_t purpose,
                                  const keymaster_key_blob_t* key_blob,
                                  const keymaster_key_param_set_t* params,
                                  keymaster_key_param_set_t* out_params, uint64_t* op_handle) {
    // Kept: an empty blob is let through.
    if (!hasArray(key_blob)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    clearOutput(out_params);
    if (op_handle == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    CborExchange exchange(channel, kBeginOperation);
    exchange.encode(&KeymasterSerialize::serializeClientBegin, EnumArgument(purpose), params,
                    key_blob);
    exchange.send();
    exchange.decode(&KeymasterSerialize::deserializeClientBegin, out_params, op_handle);
    return exchange.error();
}

keymaster_error_t update_operation(const Channel& channel, uint64_t op_handle,
                                   const keymaster_key_param_set_t* params,
                                   const keymaster_blob_t* input, uint32_t* input_consumed,
                                   keymaster_key_param_set_t* out_params,
                                   keymaster_blob_t* output) {
    if (input_consumed == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    clearOutput(out_params);
    clearOutput(output);
    clearOutput(input_consumed);
    CborExchange exchange(channel, kUpdateOperation);
    exchange.encode(&KeymasterSerialize::serializeClientUpdate, op_handle, params, input);
    exchange.send();
    exchange.decode(&KeymasterSerialize::deserializeClientUpdate, out_params, output,
                    input_consumed);
    return exchange.error();
}

keymaster_error_t finish_operation(const Channel& channel, uint64_t op_handle,
                                   const keymaster_key_param_set_t* params,
                                   const keymaster_blob_t* input, const keymaster_blob_t* signature,
                                   keymaster_key_param_set_t* out_params,
                                   keymaster_blob_t* output) {
    clearOutput(out_params);
    clearOutput(output);
    CborExchange exchange(channel, kFinishOperation);
    exchange.encode(&KeymasterSerialize::serializeClientFinish, op_handle, params, input,
                    signature);
    exchange.send();
    exchange.decode(&KeymasterSerialize::deserializeClientFinish, out_params, output);
    return exchange.error();
}

keymaster_error_t abort_operation(const Channel& channel, uint64_t op_handle) {
    CborExchange exchange(channel, kAbortOperation);
    exchange.encode(&KeymasterSerialize::serializeClientAbort, op_handle);
    exchange.send();
    return exchange.error();
}

}  // namespace keymasterdevice::cbor
