// The device core: one method for each keymaster operation.
//
// A method sends a command to the secure application on one of two wires, as the transport reports:
// CBOR, or for older secure applications fixed-layout records, which are the methods with the
// prefix legacy_. Where the wires differ, a method says so.
//
// Results. Every method that returns an error returns 0 or the first error met, unchanged: of its
// own checks, of the transport, of the secure application or of the decoder. Beside those named
// with a method, any call can return
//   KM_ERROR_MEMORY_ALLOCATION_FAILED (-41)  out of memory, or more certificates or parameters than
//                                            a 32-bit device could hold
//   KM_ERROR_INVALID_INPUT_LENGTH (-21)      CBOR: the request does not fit, or has a tag of the
//                                            invalid type
//   1, -1 or a QCBOR code                    CBOR: the response is not as it should be
//   KM_ERROR_INVALID_TAG (-40)               records: a tag of the invalid type; CBOR: a bad
//                                            parameter in the response
//   KM_ERROR_INVALID_ARGUMENT (-38)          records: the transport has no shared buffer; logged
//   KM_ERROR_INSUFFICIENT_BUFFER_SPACE       records: the request does not fit
//   KM_ERROR_UNKNOWN_ERROR (-1000)           records: the response points out of the shared buffer
// Failures over records are logged, those over CBOR are not. There is no retry.
//
// Arguments. A pointer may be null only where that is said. What must not be null is checked before
// anything is sent, inputs first: KM_ERROR_UNEXPECTED_NULL_POINTER (-32) for an input,
// KM_ERROR_OUTPUT_PARAMETER_NULL (-27) for an output. "Present" is a blob or a set that is neither
// null nor without array nor of length 0; any other is absent. Sizes are bytes. Inputs stay the
// caller's and are not kept. Enumerations may hold any 32-bit value, which is sent as it is.
//
// Outputs. Key blobs, exported keys, operation output, parameter arrays with their blob values, and
// certificates with their array are heap memory of the caller's, released with free. What an output
// holds on entry is overwritten and not released. After an error it is as it was, unless the method
// says otherwise.
//
// No public method throws, but the by-value vectors are copied where the call is made. One thread
// at a time may call a device.
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
    // Makes the transport for `level`. Security level 2 (StrongBox) sends the StrongBox
    // identifiers, every other value those of the trusted environment. Throws std::bad_alloc.
    explicit KeymasterHalDevice(keymaster_security_level_t level);
    virtual ~KeymasterHalDevice();
    KeymasterHalDevice(const KeymasterHalDevice&) = delete;
    KeymasterHalDevice& operator=(const KeymasterHalDevice&) = delete;

    // The secure application's keymaster version, such as 4, as the transport knows it; sends
    // nothing.
    uint32_t get_keymaster_version();

    // ---- Keys ----

    // Makes a key. `params` describes it; `key_blob` receives the blob, of which the secure
    // application alone knows the secret, and `characteristics` what the blob tells in clear.
    // `characteristics` may be null and is then not read.
    //
    // CBOR: a null `params` is an empty set. Where the characteristics cannot be read, the blob and
    // a hardware-enforced set that was good are the caller's all the same.
    // Records: absent `params` is -32. KM_ERROR_INVALID_KEY_BLOB (-33) for a blob of less than 395
    // bytes. After an error beyond the link, an array in `key_blob`, even from before the call, is
    // released with free and the blob cleared; without an array its size means nothing.
    [[nodiscard]] keymaster_error_t generate_key(const keymaster_key_param_set_t* params,
                                                 keymaster_key_blob_t* key_blob,
                                                 keymaster_key_characteristics_t* characteristics);

    // What the present `key_blob` tells in clear: a hardware- and a software-enforced set, each
    // with an array even where it is empty. -33 or -38 where it cannot be read; a hardware-enforced
    // set that was good is then the caller's all the same.
    //
    // CBOR: nothing is sent; `client_id` and `app_data` are not looked at.
    // Records: the secure application is asked as well, with `client_id` and `app_data`, which may
    // be absent. -33 where neither blob nor answer is a key blob, or is one of less than 395 bytes.
    [[nodiscard]] keymaster_error_t get_key_characteristics(
        const keymaster_key_blob_t* key_blob, const keymaster_blob_t* client_id,
        const keymaster_blob_t* app_data, keymaster_key_characteristics_t* characteristics);

    // Makes a key of the present `key_data`, which is in `format`: PKCS#8 in DER, or the raw bytes
    // of a symmetric key. `params` must not be null. Outputs as for generate_key, whose rule about
    // `characteristics` holds too.
    //
    // CBOR: where the characteristics cannot be read, the blob is the caller's all the same.
    // Records: it is not. -33 without a KM_TAG_ALGORITHM. Up to keymaster version 3 an EC key is
    // taken apart here, which fails with a code of KeymasterCryptoDevice::pkcs8_to_internal, or
    // KM_ERROR_UNSUPPORTED_EC_CURVE for a curve other than P-224, P-256, P-384 and P-521.
    [[nodiscard]] keymaster_error_t import_key(const keymaster_key_param_set_t* params,
                                               keymaster_key_format_t format,
                                               const keymaster_blob_t* key_data,
                                               keymaster_key_blob_t* key_blob,
                                               keymaster_key_characteristics_t* characteristics);

    // Makes a key of `wrapped_key_data`, a DER SecureKeyWrapper, with the wrapping key of
    // `wrapping_key_blob`. `masking_key` is exclusive-or'ed to the transport key within; the copy
    // that the call gets is wiped. The secure ids are those of a password and a fingerprint user, 0
    // for none. `unwrapping_params` may be absent, and the vectors empty. Outputs as for
    // import_key.
    [[nodiscard]] keymaster_error_t import_wrapped_key(
        const keymaster_key_param_set_t* unwrapping_params, uint64_t password_sid,
        uint64_t biometric_sid, std::vector<uint8_t> wrapped_key_data,
        std::vector<uint8_t> wrapping_key_blob, std::vector<uint8_t> masking_key,
        keymaster_key_blob_t* key_blob, keymaster_key_characteristics_t* characteristics);

    // The public key of the present `key_blob`, in `format` (X.509: a DER SubjectPublicKeyInfo).
    // `client_id` and `app_data` may be absent.
    //
    // CBOR: application data without a client id is -21.
    // Records: older secure applications answer with the parts of the key, which are encoded here.
    // KM_ERROR_UNSUPPORTED_ALGORITHM (-4, logged) for other than RSA and EC, or a code of
    // KeymasterCryptoDevice::internal_to_x509. From newer ones an answer for which there is no
    // memory leaves its length in `export_data`.
    [[nodiscard]] keymaster_error_t export_key(keymaster_key_format_t format,
                                               const keymaster_key_blob_t* key_blob,
                                               const keymaster_blob_t* client_id,
                                               const keymaster_blob_t* app_data,
                                               keymaster_blob_t* export_data);

    // Binds a key of an older system to this one: `upgraded_key` takes the place of `key_blob`,
    // which still has to be deleted.
    //
    // CBOR: both inputs must be present.
    // Records: `upgrade_params` may be absent and the blob empty, but not null; a null
    // `upgraded_key` is -32.
    [[nodiscard]] keymaster_error_t upgrade_key(const keymaster_key_blob_t* key_blob,
                                                const keymaster_key_param_set_t* upgrade_params,
                                                keymaster_key_blob_t* upgraded_key);

    // Makes the key of a blob unusable.
    //
    // CBOR: an absent blob is sent as an empty one.
    // Records: the blob must not be null, nor its bytes. One of exactly 64 bytes is a key of
    // file-based encryption, which the secure-world driver is asked to forget; that gives 0 even
    // where it fails, which is only logged.
    [[nodiscard]] keymaster_error_t delete_key(const keymaster_key_blob_t* key_blob);
    // The same for all keys.
    [[nodiscard]] keymaster_error_t delete_all_keys();

    // ---- Operations ----

    // Begins an operation with a key. The blob must not be null, nor its bytes; it may be empty.
    // `params` may be absent. `op_handle` receives what the other three methods want. `out_params`
    // receives parameters such as a nonce that the secure application chose; null where none is
    // wanted.
    //
    // CBOR: `out_params` is emptied before the check of `op_handle`. After an error its length can
    // be that of an announced array that is not there.
    // Records: an error of the send or of the secure application empties `out_params` and sets
    // `*op_handle` to 0; after any other both are as they were. A nonce without an `out_params` to
    // take it is -27, and the operation is aborted.
    [[nodiscard]] keymaster_error_t begin_operation(keymaster_purpose_t purpose,
                                                    const keymaster_key_blob_t* key_blob,
                                                    const keymaster_key_param_set_t* params,
                                                    keymaster_key_param_set_t* out_params,
                                                    uint64_t* op_handle);

    // Feeds `input`, of which at most 16384 bytes are sent, or 18432 as a record to StrongBox;
    // `input_consumed` receives how many were taken, and the caller sends the rest in later calls.
    // `params` and `input` may be absent. `out_params` and `output` may be null and are empty where
    // there is nothing for them.
    //
    // CBOR: all three outputs are cleared before anything is sent; after an error the length of
    // `out_params` can be as after begin_operation.
    // Records: an error of the send or of the secure application empties `out_params` and `output`,
    // and `*input_consumed` is read from the response even then. Output for a null `output` is -27.
    // Output for which there is no memory leaves its length in `output`.
    [[nodiscard]] keymaster_error_t update_operation(
        uint64_t op_handle, const keymaster_key_param_set_t* params, const keymaster_blob_t* input,
        uint32_t* input_consumed, keymaster_key_param_set_t* out_params, keymaster_blob_t* output);

    // Feeds the last `input` and ends the operation. `signature` is what a verification compares
    // with. Any pointer may be null, any input absent. Outputs are as after an update.
    //
    // CBOR: the whole input is sent.
    // Records: input beyond the bytes that an update sends is dropped. ECDSA signatures are
    // converted between DER and the secure application's raw r and s for the operations that this
    // device has begun, which can fail with KM_ERROR_VERIFICATION_FAILED (-30).
    [[nodiscard]] keymaster_error_t finish_operation(uint64_t op_handle,
                                                     const keymaster_key_param_set_t* params,
                                                     const keymaster_blob_t* input,
                                                     const keymaster_blob_t* signature,
                                                     keymaster_key_param_set_t* out_params,
                                                     keymaster_blob_t* output);

    // Ends an operation without a result.
    [[nodiscard]] keymaster_error_t abort_operation(uint64_t op_handle);

    // ---- Attestation ----

    // A chain of DER certificates (X.509) for the key of the present `key_blob`, its own first.
    // `params` must not be null and may be empty; a null `cert_chain` is -32 as well. The dates of
    // the key are read from its blob and sent along.
    //
    // CBOR: the caller hands in an entry array of at least one entry, else -27. It is neither read
    // nor freed, and on success its address is replaced by that of the new array.
    // Records: what the chain holds does not matter. An error of the send or of the secure
    // application empties it.
    [[nodiscard]] keymaster_error_t attest_key(const keymaster_key_blob_t* key_blob,
                                               const keymaster_key_param_set_t* params,
                                               keymaster_cert_chain_t* cert_chain);

    // Makes the secure application forget, for good, the identifiers of the device that it attests.
    [[nodiscard]] keymaster_error_t destroy_device_ids();

    // ---- Agreement on an HMAC key ----

    // This secure application's share: 32 bytes of seed and 32 of nonce.
    //
    // CBOR: a shorter seed or nonce leaves the rest of its field as it was.
    [[nodiscard]] keymaster_error_t get_hmac_sharing_parameters(hmac_sharing_params_t* params);

    // Agrees on the key, with the shares of all parties in the order on which they have agreed.
    // Appends the check value, 32 bytes over records, to `sharing_check`, which is not cleared
    // first.
    //
    // Records: no shares are -32.
    [[nodiscard]] keymaster_error_t compute_shared_hmac(std::vector<hmac_sharing_params_t> params,
                                                        std::vector<uint8_t>& sharing_check);

    // Has the secure application confirm `challenge` with a token: the challenge, its clock in
    // milliseconds since boot, its security level and a MAC of 32 bytes under the shared key.
    // Records whatever the transport reports. StrongBox: KM_ERROR_UNIMPLEMENTED (-100), nothing is
    // sent.
    [[nodiscard]] keymaster_error_t verifyAuthorization(uint64_t challenge,
                                                        verification_token_t* token);

    // ---- State of the device ----

    // Tells the secure application the OS version and patch levels, of which `params` has the tags;
    // it may be absent. Nothing but the result is taken from the answer.
    [[nodiscard]] keymaster_error_t configure(const keymaster_key_param_set_t* params);

    // Whether the secure application takes patch levels with a day (YYYYMMDD). An answer of
    // KM_ERROR_INVALID_TAG is no error but the answer no, and logged. Records whatever the
    // transport reports.
    [[nodiscard]] keymaster_error_t get_date_support(bool* supported);

    // Delivers root of trust and boot state, once, early at boot. `root_of_trust` is 32 bytes, all
    // of which are sent; of `boot_state` the first 4 bytes are read and sent; neither may be null.
    // `unused` is not looked at. The numbers are sent as they are. Two requests, of which the
    // second follows only if the first succeeds. Records whatever the transport reports.
    [[nodiscard]] keymaster_error_t SetRot(uint8_t* root_of_trust, uint8_t* unused, bool locked,
                                           uint8_t* boot_state, _km_boot_state_color_t color,
                                           uint32_t system_version, uint32_t system_patchlevel);

    // Ends early boot: keys that are for early boot only are refused from then on. CBOR whatever
    // the transport reports.
    [[nodiscard]] keymaster_error_t set_early_boot_ended();

    // Locks the device: keys that want an unlocked device are refused until the user has
    // authenticated, with the password where `password_only` is set. CBOR whatever the transport
    // reports.
    [[nodiscard]] keymaster_error_t set_device_locked(bool password_only);

    // ---- Diagnostics ----

    // The name of a tag, or null for one that the table does not have.
    static const char* TagToString(keymaster_tag_t tag);
    // Does nothing in this build.
    void PrintParams(keymaster_key_param_t* params, unsigned int count);

    // ---- Over records ----
    //
    // What the method without the prefix does where the transport reports records, with its
    // arguments, results and outputs; these do not ask the transport. They do not catch
    // std::bad_alloc, which a vector argument can throw.

    [[nodiscard]] keymaster_error_t legacy_configure(const keymaster_key_param_set_t* params);
    // What legacy_generate_key does between bringing up the link and reading the characteristics.
    // After an error `key_blob` is as it was, but for its size where there is no memory.
    [[nodiscard]] keymaster_error_t generate_key_common(const keymaster_key_param_set_t* params,
                                                        keymaster_key_blob_t* key_blob);
    [[nodiscard]] keymaster_error_t legacy_generate_key(
        const keymaster_key_param_set_t* params, keymaster_key_blob_t* key_blob,
        keymaster_key_characteristics_t* characteristics);
    [[nodiscard]] keymaster_error_t legacy_get_key_characteristics(
        const keymaster_key_blob_t* key_blob, const keymaster_blob_t* client_id,
        const keymaster_blob_t* app_data, keymaster_key_characteristics_t* characteristics);
    [[nodiscard]] keymaster_error_t legacy_import_key(
        const keymaster_key_param_set_t* params, keymaster_key_format_t format,
        const keymaster_blob_t* key_data, keymaster_key_blob_t* key_blob,
        keymaster_key_characteristics_t* characteristics);
    [[nodiscard]] keymaster_error_t legacy_export_key(keymaster_key_format_t format,
                                                      const keymaster_key_blob_t* key_blob,
                                                      const keymaster_blob_t* client_id,
                                                      const keymaster_blob_t* app_data,
                                                      keymaster_blob_t* export_data);
    [[nodiscard]] keymaster_error_t legacy_attest_key(const keymaster_key_blob_t* key_blob,
                                                      const keymaster_key_param_set_t* params,
                                                      keymaster_cert_chain_t* cert_chain);
    [[nodiscard]] keymaster_error_t legacy_upgrade_key(
        const keymaster_key_blob_t* key_blob, const keymaster_key_param_set_t* upgrade_params,
        keymaster_key_blob_t* upgraded_key);
    [[nodiscard]] keymaster_error_t legacy_begin_operation(keymaster_purpose_t purpose,
                                                           const keymaster_key_blob_t* key_blob,
                                                           const keymaster_key_param_set_t* params,
                                                           keymaster_key_param_set_t* out_params,
                                                           uint64_t* op_handle);
    [[nodiscard]] keymaster_error_t legacy_update_operation(
        uint64_t op_handle, const keymaster_key_param_set_t* params, const keymaster_blob_t* input,
        uint32_t* input_consumed, keymaster_key_param_set_t* out_params, keymaster_blob_t* output);
    [[nodiscard]] keymaster_error_t legacy_finish_operation(uint64_t op_handle,
                                                            const keymaster_key_param_set_t* params,
                                                            const keymaster_blob_t* input,
                                                            const keymaster_blob_t* signature,
                                                            keymaster_key_param_set_t* out_params,
                                                            keymaster_blob_t* output);
    [[nodiscard]] keymaster_error_t legacy_abort_operation(uint64_t op_handle);
    [[nodiscard]] keymaster_error_t legacy_delete_key(const keymaster_key_blob_t* key_blob);
    [[nodiscard]] keymaster_error_t legacy_delete_all_keys();
    [[nodiscard]] keymaster_error_t legacy_destroy_device_ids();
    [[nodiscard]] keymaster_error_t legacy_import_wrapped_key(
        const keymaster_key_param_set_t* unwrapping_params, uint64_t password_sid,
        uint64_t biometric_sid, std::vector<uint8_t> wrapped_key_data,
        std::vector<uint8_t> wrapping_key_blob, std::vector<uint8_t> masking_key,
        keymaster_key_blob_t* key_blob, keymaster_key_characteristics_t* characteristics);
    [[nodiscard]] keymaster_error_t legacy_get_hmac_sharing_parameters(
        hmac_sharing_params_t* params);
    [[nodiscard]] keymaster_error_t legacy_compute_shared_hmac(
        std::vector<hmac_sharing_params_t> params, std::vector<uint8_t>& sharing_check);
    [[nodiscard]] keymaster_error_t legacy_get_date_support(bool* supported);
    [[nodiscard]] keymaster_error_t LegacyVerifyAuthorization(uint64_t challenge,
                                                              verification_token_t* token);
    [[nodiscard]] keymaster_error_t LegacySetRot(uint8_t* root_of_trust, uint8_t* unused,
                                                 bool locked, uint8_t* boot_state,
                                                 _km_boot_state_color_t color,
                                                 uint32_t system_version,
                                                 uint32_t system_patchlevel);

    // Appends `count` parameters to a request as records of 12 bytes, their blob bytes behind the
    // array. -32 for a null builder, for null `params` unless `count` is 0, and for a blob that has
    // a length and no bytes; KM_ERROR_INVALID_TAG (-40) for a tag of the invalid type; else the
    // builder's code. After an error the request is unfinished and its indirect region open.
    [[nodiscard]] keymaster_error_t params_serialize(std::unique_ptr<KeymasterBuffer>& builder,
                                                     keymaster_key_param_t* params,
                                                     unsigned int count);

  private:
    Channel channel() const;  // what an exchange knows of this device

    std::unique_ptr<KeymasterCryptoDevice> crypto_device_;
    std::unique_ptr<keymasterutils::KeymasterUtils> transport_;
    // Operation handle to purpose; the legacy operations alone fill and read it.
    std::map<uint64_t, keymaster_purpose_t> operation_purposes_;
    uint32_t security_level_;  // a keymaster_security_level_t, perhaps without an enumerator
};

}  // namespace keymasterdevice
