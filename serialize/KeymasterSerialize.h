// The bodies of the CBOR requests and responses. Each is one map with small integer labels, whose
// entries have a fixed order.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>
#include <vector>

#include "CborHelpers.h"
#include "KeymasterRecords.h"
#include "Outputs.h"

namespace keymasterutils {
class KeymasterUtils;
}

// Built for one call.
//
// Encoders write to `request->data`, which holds `request->data_length` bytes, and set that to the
// encoded length. KM_ERROR_INVALID_INPUT_LENGTH, with the length unchanged, when the request does
// not fit or carries a parameter with an invalid tag. A null parameter set, or one with a null
// array, is an empty set; a null blob is an empty string.
//
// Decoders return the reader's error (see CborReader), else QCBOR's at the end of the message; a
// bad parameter is KM_ERROR_INVALID_TAG. They throw std::bad_alloc. What they hand out comes from
// array new and is the caller's, who releases it with free; outputs are set after the whole message
// was good, except `out_params->length`, which has the announced count even after an error. An
// output that is null is dropped.
class KeymasterSerialize {
  public:
    // `transport` copies what is taken out of a response; it stays the caller's.
    explicit KeymasterSerialize(keymasterutils::KeymasterUtils* transport)
        : transport_(transport) {}
    virtual ~KeymasterSerialize() = default;

    // One key parameter. addParams leaves the encoder with an error for KM_TAG_INVALID, and writes
    // nothing for a tag of an unknown type. parseParams takes the tag as a positive label only;
    // `out` owns the bytes of a blob value.
    void addParams(const keymaster_key_param_t* param, QCBOREncodeContext* encoder);
    keymaster_error_t parseParams(CborReader* reader, keymaster_key_param_t* out);

    // configure, generate_key
    keymaster_error_t serializeClientParams(const keymaster_key_param_set_t* params,
                                            keymaster_blob_t* request);
    // generate_key, import_key, import_wrapped_key, upgrade_key
    keymaster_error_t deserializeClientKeyblob(keymaster_blob_t response,
                                               keymaster_key_blob_t* key_blob);
    // delete_key
    keymaster_error_t serializeClientKeyblob(const keymaster_key_blob_t* key_blob,
                                             keymaster_blob_t* request);
    // upgrade_key
    keymaster_error_t serializeClientParamsKeyblob(const keymaster_key_param_set_t* params,
                                                   const keymaster_key_blob_t* key_blob,
                                                   keymaster_blob_t* request);
    // import_key
    keymaster_error_t serializeClientImpKey(const keymaster_key_param_set_t* params,
                                            keymaster_key_format_t format,
                                            const keymaster_blob_t* key_data,
                                            keymaster_blob_t* request);
    // import_wrapped_key
    keymaster_error_t serializeClientSecureImportKey(const keymaster_key_param_set_t* params,
                                                     uint64_t password_sid, uint64_t biometric_sid,
                                                     std::vector<uint8_t> wrapped_key_data,
                                                     std::vector<uint8_t> wrapping_key_blob,
                                                     std::vector<uint8_t> masking_key,
                                                     keymaster_blob_t* request);
    // export_key
    keymaster_error_t serializeClientExpKey(keymaster_key_format_t format,
                                            const keymaster_key_blob_t* key_blob,
                                            const keymaster_blob_t* client_id,
                                            const keymaster_blob_t* app_data,
                                            keymaster_blob_t* request);
    keymaster_error_t deserializeClientExpKey(keymaster_blob_t response,
                                              keymaster_blob_t* export_data);
    // attest_key; an entry array that `cert_chain` already has is neither read nor freed
    keymaster_error_t serializeClientAttestKey(const keymaster_key_param_set_t* params,
                                               const keymaster_key_blob_t* key_blob, tztm active,
                                               tztm expire, keymaster_blob_t* request);
    keymaster_error_t deserializeClientAttestKey(keymaster_blob_t response,
                                                 keymaster_cert_chain_t* cert_chain);
    // begin_operation
    keymaster_error_t serializeClientBegin(keymaster_purpose_t purpose,
                                           const keymaster_key_param_set_t* params,
                                           const keymaster_key_blob_t* key_blob,
                                           keymaster_blob_t* request);
    keymaster_error_t deserializeClientBegin(keymaster_blob_t response,
                                             keymaster_key_param_set_t* out_params,
                                             uint64_t* op_handle);
    // update_operation; at most the first 16384 bytes of input are sent
    keymaster_error_t serializeClientUpdate(uint64_t op_handle,
                                            const keymaster_key_param_set_t* params,
                                            const keymaster_blob_t* input,
                                            keymaster_blob_t* request);
    keymaster_error_t deserializeClientUpdate(keymaster_blob_t response,
                                              keymaster_key_param_set_t* out_params,
                                              keymaster_blob_t* output, uint32_t* input_consumed);
    // finish_operation
    keymaster_error_t serializeClientFinish(uint64_t op_handle,
                                            const keymaster_key_param_set_t* params,
                                            const keymaster_blob_t* input,
                                            const keymaster_blob_t* signature,
                                            keymaster_blob_t* request);
    keymaster_error_t deserializeClientFinish(keymaster_blob_t response,
                                              keymaster_key_param_set_t* out_params,
                                              keymaster_blob_t* output);
    // abort_operation
    keymaster_error_t serializeClientAbort(uint64_t op_handle, keymaster_blob_t* request);
    // destroy_device_ids
    keymaster_error_t serializeClientDestroyDeviceIds(bool flag, keymaster_blob_t* request);
    // get_hmac_sharing_parameters
    keymaster_error_t deserializeClientGetHmacParams(keymaster_blob_t response,
                                                     hmac_sharing_params_t* params);
    // compute_shared_hmac; the check value is appended to `sharing_check`
    keymaster_error_t serializeClientComputeHmacParams(std::vector<hmac_sharing_params_t> params,
                                                       keymaster_blob_t* request);
    keymaster_error_t deserializeClientComputeHmacParams(keymaster_blob_t response,
                                                         std::vector<uint8_t>& sharing_check);
    // set_device_locked
    keymaster_error_t serializeClientSetDeviceLocked(bool flag, keymaster_blob_t* request);

  private:
    keymasterutils::KeymasterUtils* transport_;
};
