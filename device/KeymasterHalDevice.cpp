// The public methods of the device core, one line each: which wire, and no exception to the caller.

#include "KeymasterHalDevice.h"

#include <KeymasterUtils.h>

#include <utility>

#include "BadAlloc.h"
#include "Channel.h"
#include "EnumBits.h"
#include "KeymasterCryptoDevice.h"
#include "PlatformTags.h"
#include "TagNames.h"
#include "cbor/CborCommands.h"

namespace keymasterdevice {
namespace {

using Hal = KeymasterHalDevice;

// Always over records.
template <typename Twin, typename... Args>
keymaster_error_t overRecords(Hal* device, Twin twin, Args&&... args) {
    return catchBadAlloc([&] { return (device->*twin)(std::forward<Args>(args)...); });
}

// Always over CBOR.
template <typename Cbor, typename... Args>
keymaster_error_t overCbor(const Channel& channel, Cbor cbor, Args&&... args) {
    return catchBadAlloc([&] { return cbor(channel, std::forward<Args>(args)...); });
}

// Over the wire that the secure application speaks.
template <typename Twin, typename Cbor, typename... Args>
keymaster_error_t onWire(Hal* device, const Channel& channel, Twin twin, Cbor cbor,
                         Args&&... args) {
    return catchBadAlloc([&] {
        return channel.transport.isLegacy() ? (device->*twin)(std::forward<Args>(args)...)
                                            : cbor(channel, std::forward<Args>(args)...);
    });
}

}  // namespace

KeymasterHalDevice::KeymasterHalDevice(keymaster_security_level_t level)
    : crypto_device_(std::make_unique<KeymasterCryptoDevice>()),
      transport_(std::make_unique<keymasterutils::KeymasterUtils>(EnumArgument(level))),
      security_level_(enumToBits(level)) {}

KeymasterHalDevice::~KeymasterHalDevice() = default;

Channel KeymasterHalDevice::channel() const {
    return {*transport_, security_level_ == kSecurityLevelStrongBox};
}

uint32_t KeymasterHalDevice::get_keymaster_version() {
    return transport_->getKeymasterVersion();
}

// ---- Keys ----

keymaster_error_t KeymasterHalDevice::generate_key(
    const keymaster_key_param_set_t* params, keymaster_key_blob_t* key_blob,
    keymaster_key_characteristics_t* characteristics) {
    return onWire(this, channel(), &Hal::legacy_generate_key, cbor::generate_key, params, key_blob,
                  characteristics);
}

keymaster_error_t KeymasterHalDevice::get_key_characteristics(
    const keymaster_key_blob_t* key_blob, const keymaster_blob_t* client_id,
    const keymaster_blob_t* app_data, keymaster_key_characteristics_t* characteristics) {
    return onWire(this, channel(), &Hal::legacy_get_key_characteristics,
                  cbor::get_key_characteristics, key_blob, client_id, app_data, characteristics);
}

keymaster_error_t KeymasterHalDevice::import_key(const keymaster_key_param_set_t* params,
                                                 keymaster_key_format_t format,
                                                 const keymaster_blob_t* key_data,
                                                 keymaster_key_blob_t* key_blob,
                                                 keymaster_key_characteristics_t* characteristics) {
    return onWire(this, channel(), &Hal::legacy_import_key, cbor::import_key, params,
                  EnumArgument(format), key_data, key_blob, characteristics);
}

keymaster_error_t KeymasterHalDevice::import_wrapped_key(
    const keymaster_key_param_set_t* unwrapping_params, uint64_t password_sid,
    uint64_t biometric_sid, std::vector<uint8_t> wrapped_key_data,
    std::vector<uint8_t> wrapping_key_blob, std::vector<uint8_t> masking_key,
    keymaster_key_blob_t* key_blob, keymaster_key_characteristics_t* characteristics) {
    return onWire(this, channel(), &Hal::legacy_import_wrapped_key, cbor::import_wrapped_key,
                  unwrapping_params, password_sid, biometric_sid, std::move(wrapped_key_data),
                  std::move(wrapping_key_blob), std::move(masking_key), key_blob, characteristics);
}

keymaster_error_t KeymasterHalDevice::export_key(keymaster_key_format_t format,
                                                 const keymaster_key_blob_t* key_blob,
                                                 const keymaster_blob_t* client_id,
                                                 const keymaster_blob_t* app_data,
                                                 keymaster_blob_t* export_data) {
    return onWire(this, channel(), &Hal::legacy_export_key, cbor::export_key, EnumArgument(format),
                  key_blob, client_id, app_data, export_data);
}

keymaster_error_t KeymasterHalDevice::upgrade_key(const keymaster_key_blob_t* key_blob,
                                                  const keymaster_key_param_set_t* upgrade_params,
                                                  keymaster_key_blob_t* upgraded_key) {
    return onWire(this, channel(), &Hal::legacy_upgrade_key, cbor::upgrade_key, key_blob,
                  upgrade_params, upgraded_key);
}

keymaster_error_t KeymasterHalDevice::delete_key(const keymaster_key_blob_t* key_blob) {
    return onWire(this, channel(), &Hal::legacy_delete_key, cbor::delete_key, key_blob);
}

keymaster_error_t KeymasterHalDevice::delete_all_keys() {
    return onWire(this, channel(), &Hal::legacy_delete_all_keys, cbor::delete_all_keys);
}

// ---- Operations ----

keymaster_error_t KeymasterHalDevice::begin_operation(keymaster_purpose_t purpose,
                                                      const keymaster_key_blob_t* key_blob,
                                                      const keymaster_key_param_set_t* params,
                                                      keymaster_key_param_set_t* out_params,
                                                      uint64_t* op_handle) {
    return onWire(this, channel(), &Hal::legacy_begin_operation, cbor::begin_operation,
                  EnumArgument(purpose), key_blob, params, out_params, op_handle);
}

keymaster_error_t KeymasterHalDevice::update_operation(
    uint64_t op_handle, const keymaster_key_param_set_t* params, const keymaster_blob_t* input,
    uint32_t* input_consumed, keymaster_key_param_set_t* out_params, keymaster_blob_t* output) {
    return onWire(this, channel(), &Hal::legacy_update_operation, cbor::update_operation, op_handle,
                  params, input, input_consumed, out_params, output);
}

keymaster_error_t KeymasterHalDevice::finish_operation(uint64_t op_handle,
                                                       const keymaster_key_param_set_t* params,
                                                       const keymaster_blob_t* input,
                                                       const keymaster_blob_t* signature,
                                                       keymaster_key_param_set_t* out_params,
                                                       keymaster_blob_t* output) {
    return onWire(this, channel(), &Hal::legacy_finish_operation, cbor::finish_operation, op_handle,
                  params, input, signature, out_params, output);
}

keymaster_error_t KeymasterHalDevice::abort_operation(uint64_t op_handle) {
    return onWire(this, channel(), &Hal::legacy_abort_operation, cbor::abort_operation, op_handle);
}

// ---- Attestation ----

keymaster_error_t KeymasterHalDevice::attest_key(const keymaster_key_blob_t* key_blob,
                                                 const keymaster_key_param_set_t* params,
                                                 keymaster_cert_chain_t* cert_chain) {
    return onWire(this, channel(), &Hal::legacy_attest_key, cbor::attest_key, key_blob, params,
                  cert_chain);
}

keymaster_error_t KeymasterHalDevice::destroy_device_ids() {
    return onWire(this, channel(), &Hal::legacy_destroy_device_ids, cbor::destroy_device_ids);
}

// ---- Agreement on an HMAC key ----

keymaster_error_t KeymasterHalDevice::get_hmac_sharing_parameters(hmac_sharing_params_t* params) {
    return onWire(this, channel(), &Hal::legacy_get_hmac_sharing_parameters,
                  cbor::get_hmac_sharing_parameters, params);
}

keymaster_error_t KeymasterHalDevice::compute_shared_hmac(std::vector<hmac_sharing_params_t> params,
                                                          std::vector<uint8_t>& sharing_check) {
    return onWire(this, channel(), &Hal::legacy_compute_shared_hmac, cbor::compute_shared_hmac,
                  std::move(params), sharing_check);
}

keymaster_error_t KeymasterHalDevice::verifyAuthorization(uint64_t challenge,
                                                          verification_token_t* token) {
    return overRecords(this, &Hal::LegacyVerifyAuthorization, challenge, token);
}

// ---- State of the device ----

keymaster_error_t KeymasterHalDevice::configure(const keymaster_key_param_set_t* params) {
    return onWire(this, channel(), &Hal::legacy_configure, cbor::configure, params);
}

keymaster_error_t KeymasterHalDevice::get_date_support(bool* supported) {
    return overRecords(this, &Hal::legacy_get_date_support, supported);
}

keymaster_error_t KeymasterHalDevice::SetRot(uint8_t* root_of_trust, uint8_t* unused, bool locked,
                                             uint8_t* boot_state, _km_boot_state_color_t color,
                                             uint32_t system_version, uint32_t system_patchlevel) {
    return overRecords(this, &Hal::LegacySetRot, root_of_trust, unused, locked, boot_state,
                       EnumArgument(color), system_version, system_patchlevel);
}

keymaster_error_t KeymasterHalDevice::set_early_boot_ended() {
    return overCbor(channel(), cbor::set_early_boot_ended);
}

keymaster_error_t KeymasterHalDevice::set_device_locked(bool password_only) {
    return overCbor(channel(), cbor::set_device_locked, password_only);
}

// ---- Diagnostics ----

const char* KeymasterHalDevice::TagToString(keymaster_tag_t tag) {
    return tagName(static_cast<uint32_t>(tag));
}

// Kept: this build prints nothing.
void KeymasterHalDevice::PrintParams(keymaster_key_param_t* /*params*/, unsigned int /*count*/) {}

}  // namespace keymasterdevice
