// The operations of the device core over CBOR, each the other half of the method of its name. They
// throw std::bad_alloc.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>
#include <vector>

#include "Channel.h"
#include "KeymasterRecords.h"

namespace keymasterdevice::cbor {

// Keys
[[nodiscard]] keymaster_error_t generate_key(const Channel& channel,
                                             const keymaster_key_param_set_t* params,
                                             keymaster_key_blob_t* key_blob,
                                             keymaster_key_characteristics_t* characteristics);
[[nodiscard]] keymaster_error_t get_key_characteristics(
    const Channel& channel, const keymaster_key_blob_t* key_blob, const keymaster_blob_t* client_id,
    const keymaster_blob_t* app_data, keymaster_key_characteristics_t* characteristics);
[[nodiscard]] keymaster_error_t import_key(const Channel& channel,
                                           const keymaster_key_param_set_t* params,
                                           keymaster_key_format_t format,
                                           const keymaster_blob_t* key_data,
                                           keymaster_key_blob_t* key_blob,
                                           keymaster_key_characteristics_t* characteristics);
[[nodiscard]] keymaster_error_t import_wrapped_key(
    const Channel& channel, const keymaster_key_param_set_t* unwrapping_params,
    uint64_t password_sid, uint64_t biometric_sid, std::vector<uint8_t> wrapped_key_data,
    std::vector<uint8_t> wrapping_key_blob, std::vector<uint8_t> masking_key,
    keymaster_key_blob_t* key_blob, keymaster_key_characteristics_t* characteristics);
[[nodiscard]] keymaster_error_t export_key(const Channel& channel, keymaster_key_format_t format,
                                           const keymaster_key_blob_t* key_blob,
                                           const keymaster_blob_t* client_id,
                                           const keymaster_blob_t* app_data,
                                           keymaster_blob_t* export_data);
[[nodiscard]] keymaster_error_t upgrade_key(const Channel& channel,
                                            const keymaster_key_blob_t* key_blob,
                                            const keymaster_key_param_set_t* upgrade_params,
                                            keymaster_key_blob_t* upgraded_key);
[[nodiscard]] keymaster_error_t delete_key(const Channel& channel,
                                           const keymaster_key_blob_t* key_blob);
[[nodiscard]] keymaster_error_t delete_all_keys(const Channel& channel);

// Operations
[[nodiscard]] keymaster_error_t begin_operation(const Channel& channel, keymaster_purpose_t purpose,
                                                const keymaster_key_blob_t* key_blob,
                                                const keymaster_key_param_set_t* params,
                                                keymaster_key_param_set_t* out_params,
                                                uint64_t* op_handle);
[[nodiscard]] keymaster_error_t update_operation(const Channel& channel, uint64_t op_handle,
                                                 const keymaster_key_param_set_t* params,
                                                 const keymaster_blob_t* input,
                                                 uint32_t* input_consumed,
                                                 keymaster_key_param_set_t* out_params,
                                                 keymaster_blob_t* output);
[[nodiscard]] keymaster_error_t finish_operation(const Channel& channel, uint64_t op_handle,
                                                 const keymaster_key_param_set_t* params,
                                                 const keymaster_blob_t* input,
                                                 const keymaster_blob_t* signature,
                                                 keymaster_key_param_set_t* out_params,
                                                 keymaster_blob_t* output);
[[nodiscard]] keymaster_error_t abort_operation(const Channel& channel, uint64_t op_handle);

// Attestation
[[nodiscard]] keymaster_error_t attest_key(const Channel& channel,
                                           const keymaster_key_blob_t* key_blob,
                                           const keymaster_key_param_set_t* params,
                                           keymaster_cert_chain_t* cert_chain);
[[nodiscard]] keymaster_error_t destroy_device_ids(const Channel& channel);

// Agreement on an HMAC key
[[nodiscard]] keymaster_error_t get_hmac_sharing_parameters(const Channel& channel,
                                                            hmac_sharing_params_t* params);
[[nodiscard]] keymaster_error_t compute_shared_hmac(const Channel& channel,
                                                    std::vector<hmac_sharing_params_t> params,
                                                    std::vector<uint8_t>& sharing_check);

// State of the device
[[nodiscard]] keymaster_error_t configure(const Channel& channel,
                                          const keymaster_key_param_set_t* params);
[[nodiscard]] keymaster_error_t set_early_boot_ended(const Channel& channel);
[[nodiscard]] keymaster_error_t set_device_locked(const Channel& channel, bool password_only);

}  // namespace keymasterdevice::cbor
