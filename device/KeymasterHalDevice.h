// The device core: one method for each keymaster operation.
//
// A method hands its arguments to its legacy twin when the transport reports a secure application
// that takes fixed-layout records; otherwise it checks them, encodes a CBOR request, sends it and
// decodes the answer. Each returns 0 or the first error met, unchanged.
//
// Outputs (key blobs, exported keys, operation output, parameter arrays and their blob values,
// certificates and their array) are heap memory of the caller's, released with free. Errors leave
// them null or untouched, as each method tells. No method throws; one thread at a time may call a
// device.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "KeymasterRecords.h"

namespace keymasterutils {
class KeymasterUtils;
}

// Colour of the boot state in the root-of-trust record.
enum _km_boot_state_color_t {  // NOLINT(bugprone-reserved-identifier): fixed name
    KM_BOOT_STATE_GREEN = 0,
    KM_BOOT_STATE_ORANGE = 1,
    KM_BOOT_STATE_YELLOW = 2,
    KM_BOOT_STATE_RED = 3,
};

namespace keymasterdevice {

class KeymasterBuffer;
class KeymasterCryptoDevice;
struct Channel;

class KeymasterHalDevice {
  public:
    // Security level 2 (StrongBox) selects the StrongBox commands; every other value the others.
    explicit KeymasterHalDevice(keymaster_security_level_t level);
    virtual ~KeymasterHalDevice();
    KeymasterHalDevice(const KeymasterHalDevice&) = delete;
    KeymasterHalDevice& operator=(const KeymasterHalDevice&) = delete;

    // The secure application's keymaster version; sends nothing.
    uint32_t get_keymaster_version();

    // Tells the secure application the OS version and patch levels. Its answer's body is ignored.
    keymaster_error_t configure(const keymaster_key_param_set_t* params);

    keymaster_error_t generate_key(const keymaster_key_param_set_t* params,
                                   keymaster_key_blob_t* key_blob,
                                   keymaster_key_characteristics_t* characteristics);

    // Reads the characteristics from the blob itself; on the CBOR path nothing is sent and
    // `client_id` and `app_data` are not looked at.
    keymaster_error_t get_key_characteristics(const keymaster_key_blob_t* key_blob,
                                              const keymaster_blob_t* client_id,
                                              const keymaster_blob_t* app_data,
                                              keymaster_key_characteristics_t* characteristics);

    keymaster_error_t import_key(const keymaster_key_param_set_t* params,
                                 keymaster_key_format_t format, const keymaster_blob_t* key_data,
                                 keymaster_key_blob_t* key_blob,
                                 keymaster_key_characteristics_t* characteristics);

    keymaster_error_t export_key(keymaster_key_format_t format,
                                 const keymaster_key_blob_t* key_blob,
                                 const keymaster_blob_t* client_id,
                                 const keymaster_blob_t* app_data, keymaster_blob_t* export_data);

    // On the CBOR path the caller hands in an entry array, whose address is replaced by that of the
    // new chain on success; it is neither read nor freed.
    keymaster_error_t attest_key(const keymaster_key_blob_t* key_blob,
                                 const keymaster_key_param_set_t* params,
                                 keymaster_cert_chain_t* cert_chain);

    // An empty parameter set is refused on the CBOR path.
    keymaster_error_t upgrade_key(const keymaster_key_blob_t* key_blob,
                                  const keymaster_key_param_set_t* upgrade_params,
                                  keymaster_key_blob_t* upgraded_key);

    keymaster_error_t begin_operation(keymaster_purpose_t purpose,
                                      const keymaster_key_blob_t* key_blob,
                                      const keymaster_key_param_set_t* params,
                                      keymaster_key_param_set_t* out_params, uint64_t* op_handle);

    // Sends at most 16384 bytes of input on the CBOR path; `input_consumed` tells how much was
    // taken, and the caller sends the rest in later calls.
    keymaster_error_t update_operation(uint64_t op_handle, const keymaster_key_param_set_t* params,
                                       const keymaster_blob_t* input, uint32_t* input_consumed,
                                       keymaster_key_param_set_t* out_params,
                                       keymaster_blob_t* output);

    keymaster_error_t finish_operation(uint64_t op_handle, const keymaster_key_param_set_t* params,
                                       const keymaster_blob_t* input,
                                       const keymaster_blob_t* signature,
                                       keymaster_key_param_set_t* out_params,
                                       keymaster_blob_t* output);

    keymaster_error_t abort_operation(uint64_t op_handle);

    keymaster_error_t delete_key(const keymaster_key_blob_t* key_blob);
    keymaster_error_t delete_all_keys();
    keymaster_error_t destroy_device_ids();

    keymaster_error_t import_wrapped_key(const keymaster_key_param_set_t* unwrapping_params,
                                         uint64_t password_sid, uint64_t biometric_sid,
                                         std::vector<uint8_t> wrapped_key_data,
                                         std::vector<uint8_t> wrapping_key_blob,
                                         std::vector<uint8_t> masking_key,
                                         keymaster_key_blob_t* key_blob,
                                         keymaster_key_characteristics_t* characteristics);

    keymaster_error_t get_hmac_sharing_parameters(hmac_sharing_params_t* params);

    // Appends the check value to `sharing_check`, which is not cleared first.
    keymaster_error_t compute_shared_hmac(std::vector<hmac_sharing_params_t> params,
                                          std::vector<uint8_t>& sharing_check);

    // These two have no legacy twin and use CBOR whatever the transport reports.
    keymaster_error_t set_early_boot_ended();
    keymaster_error_t set_device_locked(bool password_only);

    // These three use fixed-layout records whatever the transport reports.
    keymaster_error_t get_date_support(bool* supported);
    keymaster_error_t verifyAuthorization(uint64_t challenge, verification_token_t* token);
    keymaster_error_t SetRot(uint8_t* root_of_trust, uint8_t* unused, bool locked,
                             uint8_t* boot_state, _km_boot_state_color_t color,
                             uint32_t system_version, uint32_t system_patchlevel);

    // The name of a tag, or null for one that the table does not have.
    static const char* TagToString(keymaster_tag_t tag);
    void PrintParams(keymaster_key_param_t* params, unsigned int count);

    // The legacy twins; their arguments are those of the method without the prefix.
    keymaster_error_t legacy_configure(const keymaster_key_param_set_t* params);
    keymaster_error_t generate_key_common(const keymaster_key_param_set_t* params,
                                          keymaster_key_blob_t* key_blob);
    keymaster_error_t legacy_generate_key(const keymaster_key_param_set_t* params,
                                          keymaster_key_blob_t* key_blob,
                                          keymaster_key_characteristics_t* characteristics);
    keymaster_error_t legacy_get_key_characteristics(
        const keymaster_key_blob_t* key_blob, const keymaster_blob_t* client_id,
        const keymaster_blob_t* app_data, keymaster_key_characteristics_t* characteristics);
    keymaster_error_t legacy_import_key(const keymaster_key_param_set_t* params,
                                        keymaster_key_format_t format,
                                        const keymaster_blob_t* key_data,
                                        keymaster_key_blob_t* key_blob,
                                        keymaster_key_characteristics_t* characteristics);
    keymaster_error_t legacy_export_key(keymaster_key_format_t format,
                                        const keymaster_key_blob_t* key_blob,
                                        const keymaster_blob_t* client_id,
                                        const keymaster_blob_t* app_data,
                                        keymaster_blob_t* export_data);
    keymaster_error_t legacy_attest_key(const keymaster_key_blob_t* key_blob,
                                        const keymaster_key_param_set_t* params,
                                        keymaster_cert_chain_t* cert_chain);
    keymaster_error_t legacy_upgrade_key(const keymaster_key_blob_t* key_blob,
                                         const keymaster_key_param_set_t* upgrade_params,
                                         keymaster_key_blob_t* upgraded_key);
    keymaster_error_t legacy_begin_operation(keymaster_purpose_t purpose,
                                             const keymaster_key_blob_t* key_blob,
                                             const keymaster_key_param_set_t* params,
                                             keymaster_key_param_set_t* out_params,
                                             uint64_t* op_handle);
    keymaster_error_t legacy_update_operation(
        uint64_t op_handle, const keymaster_key_param_set_t* params, const keymaster_blob_t* input,
        uint32_t* input_consumed, keymaster_key_param_set_t* out_params, keymaster_blob_t* output);
    keymaster_error_t legacy_finish_operation(uint64_t op_handle,
                                              const keymaster_key_param_set_t* params,
                                              const keymaster_blob_t* input,
                                              const keymaster_blob_t* signature,
                                              keymaster_key_param_set_t* out_params,
                                              keymaster_blob_t* output);
    keymaster_error_t legacy_abort_operation(uint64_t op_handle);
    keymaster_error_t legacy_delete_key(const keymaster_key_blob_t* key_blob);
    keymaster_error_t legacy_delete_all_keys();
    keymaster_error_t legacy_destroy_device_ids();
    keymaster_error_t legacy_import_wrapped_key(const keymaster_key_param_set_t* unwrapping_params,
                                                uint64_t password_sid, uint64_t biometric_sid,
                                                std::vector<uint8_t> wrapped_key_data,
                                                std::vector<uint8_t> wrapping_key_blob,
                                                std::vector<uint8_t> masking_key,
                                                keymaster_key_blob_t* key_blob,
                                                keymaster_key_characteristics_t* characteristics);
    keymaster_error_t legacy_get_hmac_sharing_parameters(hmac_sharing_params_t* params);
    keymaster_error_t legacy_compute_shared_hmac(std::vector<hmac_sharing_params_t> params,
                                                 std::vector<uint8_t>& sharing_check);
    keymaster_error_t legacy_get_date_support(bool* supported);
    keymaster_error_t LegacyVerifyAuthorization(uint64_t challenge, verification_token_t* token);
    keymaster_error_t LegacySetRot(uint8_t* root_of_trust, uint8_t* unused, bool locked,
                                   uint8_t* boot_state, _km_boot_state_color_t color,
                                   uint32_t system_version, uint32_t system_patchlevel);

    // Appends `count` parameters as 12-byte records, their blob bytes behind the array.
    keymaster_error_t params_serialize(std::unique_ptr<KeymasterBuffer>& builder,
                                       keymaster_key_param_t* params, unsigned int count);

  private:
    Channel channel() const;

    std::unique_ptr<KeymasterCryptoDevice> crypto_device_;
    std::unique_ptr<keymasterutils::KeymasterUtils> transport_;
    // Operation handle to purpose; the legacy operations alone fill and read it.
    std::map<uint64_t, keymaster_purpose_t> operation_purposes_;
    uint32_t security_level_;  // a keymaster_security_level_t, perhaps without an enumerator
};

}  // namespace keymasterdevice
