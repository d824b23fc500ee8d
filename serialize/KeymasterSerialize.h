// The bodies of the CBOR requests and responses. Each is one map with small integer labels, whose
// entries have a fixed order.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>
#include <vector>

#include "CborHelpers.h"
#include "KeymasterRecords.h"

namespace keymasterutils {
class KeymasterUtils;
}

// Built on the stack for one call, not for several threads at once.
//
// Encoders write their map to `request->data`, which holds `request->data_length` bytes, and set
// that to the encoded length. KM_ERROR_INVALID_INPUT_LENGTH (-21), with the length unchanged, when
// the request does not fit or carries a parameter whose tag is of the invalid type; the buffer then
// holds part of a message. Of the inputs only `request` must not be null: a null parameter set, or
// one with a null array, is an empty set, and a null blob, or one with a null array, an empty
// string. Nothing of the inputs is kept.
//
// Decoders read a map whose entries come in a fixed order. A message that is not as it should be
// gives the reader's error (1, -1 or QCBOR's code, see CborReader), else QCBOR's code where bytes
// are left at the end; a bad parameter is KM_ERROR_INVALID_TAG (-40). They throw std::bad_alloc.
// Outputs are set after the whole message was good, but for `out_params->length` (see
// deserializeClientBegin), and what they held before is not released. Only `out_params` and
// `output` may be null, and then what is read for them is dropped. Byte strings and arrays in
// outputs come from array new; the caller releases them with free.
class KeymasterSerialize {
  public:
    // `transport` makes every copy out of a response; it stays the caller's and outlives this
    // object. Encoders do not use it.
    explicit KeymasterSerialize(keymasterutils::KeymasterUtils* transport)
        : transport_(transport) {}
    virtual ~KeymasterSerialize() = default;

    // ---- One parameter, as an entry of an open map ----

    // Writes `param` under its tag, widened as a signed number. The integer or blob of `param` goes
    // out whole; a boolean goes out as true, whatever it is. A tag of the invalid type leaves
    // QCBOR_ERR_UNSUPPORTED in the encoder, and one of an unknown type writes nothing. Neither
    // argument may be null.
    void addParams(const keymaster_key_param_t* param, QCBOREncodeContext* encoder);

    // Reads the next entry into `out`, whose former content is not released. The label must be the
    // tag as a positive number. The low 32 bits of an integer's item, or all 64, become the value,
    // whatever its type; a boolean becomes true. A blob value must be a string and is copied; the
    // caller releases it with free. KM_ERROR_INVALID_TAG when there is no such entry or the tag is
    // of the invalid type; `out` then owns nothing, and `reader->error` has QCBOR's code, 0 for a
    // bad label or string, or KM_ERROR_UNKNOWN_ERROR for the invalid type. Unlike the reader's
    // helpers it reads on after an error of the reader. No argument may be null.
    [[nodiscard]] keymaster_error_t parseParams(CborReader* reader, keymaster_key_param_t* out);

    // ---- Keys ----

    // configure, generate_key
    [[nodiscard]] keymaster_error_t serializeClientParams(const keymaster_key_param_set_t* params,
                                                          keymaster_blob_t* request);

    // generate_key, import_key, import_wrapped_key, upgrade_key: the blob may have no bytes, with
    // an array all the same.
    [[nodiscard]] keymaster_error_t deserializeClientKeyblob(keymaster_blob_t response,
                                                             keymaster_key_blob_t* key_blob);

    // delete_key
    [[nodiscard]] keymaster_error_t serializeClientKeyblob(const keymaster_key_blob_t* key_blob,
                                                           keymaster_blob_t* request);

    // upgrade_key
    [[nodiscard]] keymaster_error_t serializeClientParamsKeyblob(
        const keymaster_key_param_set_t* params, const keymaster_key_blob_t* key_blob,
        keymaster_blob_t* request);

    // import_key: `key_data` is the key in `format`, any 32-bit value of which goes out as it is.
    [[nodiscard]] keymaster_error_t serializeClientImpKey(const keymaster_key_param_set_t* params,
                                                          keymaster_key_format_t format,
                                                          const keymaster_blob_t* key_data,
                                                          keymaster_blob_t* request);

    // import_wrapped_key: `params` are the unwrapping parameters; the vectors go out whole, empty
    // ones as empty strings. The copy of `masking_key` is wiped before it is released.
    [[nodiscard]] keymaster_error_t serializeClientSecureImportKey(
        const keymaster_key_param_set_t* params, uint64_t password_sid, uint64_t biometric_sid,
        std::vector<uint8_t> wrapped_key_data, std::vector<uint8_t> wrapping_key_blob,
        std::vector<uint8_t> masking_key, keymaster_blob_t* request);

    // export_key: `client_id` and `app_data` count where they are not empty. The client id goes out
    // in the place of either; application data alone is KM_ERROR_INVALID_INPUT_LENGTH.
    [[nodiscard]] keymaster_error_t serializeClientExpKey(keymaster_key_format_t format,
                                                          const keymaster_key_blob_t* key_blob,
                                                          const keymaster_blob_t* client_id,
                                                          const keymaster_blob_t* app_data,
                                                          keymaster_blob_t* request);
    // `export_data` may get no bytes, with an array all the same.
    [[nodiscard]] keymaster_error_t deserializeClientExpKey(keymaster_blob_t response,
                                                            keymaster_blob_t* export_data);

    // ---- Attestation ----

    // attest_key: the dates go out as nine integers each, -1 for what is absent.
    [[nodiscard]] keymaster_error_t serializeClientAttestKey(
        const keymaster_key_param_set_t* params, const keymaster_key_blob_t* key_blob, tztm active,
        tztm expire, keymaster_blob_t* request);
    // The chain gets a new array, and each entry bytes of its own. An array that `cert_chain` has
    // already is neither read nor freed. More than kMaxCertificates is std::bad_alloc.
    [[nodiscard]] keymaster_error_t deserializeClientAttestKey(keymaster_blob_t response,
                                                               keymaster_cert_chain_t* cert_chain);

    // destroy_device_ids
    [[nodiscard]] keymaster_error_t serializeClientDestroyDeviceIds(bool flag,
                                                                    keymaster_blob_t* request);

    // ---- Operations ----

    // begin_operation: any 32-bit value of `purpose` goes out as it is, as the last parameter.
    [[nodiscard]] keymaster_error_t serializeClientBegin(keymaster_purpose_t purpose,
                                                         const keymaster_key_param_set_t* params,
                                                         const keymaster_key_blob_t* key_blob,
                                                         keymaster_blob_t* request);
    // The parameters of an answer, here and below, may be absent and `out_params` is then left
    // alone. Else its length is the announced count as soon as that was read, even if an error
    // follows, and its array is set at the end, unless the count is 0. More than kMaxParams is
    // std::bad_alloc.
    [[nodiscard]] keymaster_error_t deserializeClientBegin(keymaster_blob_t response,
                                                           keymaster_key_param_set_t* out_params,
                                                           uint64_t* op_handle);

    // update_operation: the first 16384 bytes of input at most. No entry for an empty parameter set
    // or an empty input.
    [[nodiscard]] keymaster_error_t serializeClientUpdate(uint64_t op_handle,
                                                          const keymaster_key_param_set_t* params,
                                                          const keymaster_blob_t* input,
                                                          keymaster_blob_t* request);
    // `output` is left alone where the answer has no output bytes. `input_consumed` counts bytes of
    // what the request carried.
    [[nodiscard]] keymaster_error_t deserializeClientUpdate(keymaster_blob_t response,
                                                            keymaster_key_param_set_t* out_params,
                                                            keymaster_blob_t* output,
                                                            uint32_t* input_consumed);

    // finish_operation: the whole input. No entry for an empty parameter set, input or signature.
    [[nodiscard]] keymaster_error_t serializeClientFinish(uint64_t op_handle,
                                                          const keymaster_key_param_set_t* params,
                                                          const keymaster_blob_t* input,
                                                          const keymaster_blob_t* signature,
                                                          keymaster_blob_t* request);
    // As after an update; an answer of no bytes at all is good as well.
    [[nodiscard]] keymaster_error_t deserializeClientFinish(keymaster_blob_t response,
                                                            keymaster_key_param_set_t* out_params,
                                                            keymaster_blob_t* output);

    // abort_operation
    [[nodiscard]] keymaster_error_t serializeClientAbort(uint64_t op_handle,
                                                         keymaster_blob_t* request);

    // ---- HMAC agreement ----

    // get_hmac_sharing_parameters: at most the first 32 bytes of seed and nonce; where the answer
    // has fewer, the rest of the record stays as it was.
    [[nodiscard]] keymaster_error_t deserializeClientGetHmacParams(keymaster_blob_t response,
                                                                   hmac_sharing_params_t* params);

    // compute_shared_hmac: the records go out back to back, in the order of the vector.
    [[nodiscard]] keymaster_error_t serializeClientComputeHmacParams(
        std::vector<hmac_sharing_params_t> params, keymaster_blob_t* request);
    // The check value is appended to `sharing_check`.
    [[nodiscard]] keymaster_error_t deserializeClientComputeHmacParams(
        keymaster_blob_t response, std::vector<uint8_t>& sharing_check);

    // ---- Device state ----

    // set_device_locked
    [[nodiscard]] keymaster_error_t serializeClientSetDeviceLocked(bool flag,
                                                                   keymaster_blob_t* request);

  private:
    keymasterutils::KeymasterUtils* transport_;
};
