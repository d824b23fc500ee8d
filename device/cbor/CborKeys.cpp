// Keys over CBOR: generate, import, export, upgrade, delete and what a blob tells about itself.

#include <utility>

#include "CborCommands.h"
#include "CborExchange.h"
#include "KeyBlobReader.h"
#include "Memory.h"
#include "Presence.h"

namespace keymasterdevice::cbor {
namespace {

// The blobs of these secure applications say whether a key is for early boot only.
keymaster_error_t getCharacteristics(const keymaster_key_blob_t& key_blob,
                                     keymaster_key_characteristics_t* characteristics) {
    return readCharacteristics(key_blob, EarlyBootRule::kRead, characteristics);
}

}  // namespace

keymaster_error_t generate_key(const Channel& channel, const keymaster_key_param_set_t* params,
                               keymaster_key_blob_t* key_blob,
                               keymaster_key_characteristics_t* characteristics) {
    if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    CborExchange exchange(channel, kGenerateKey);
    exchange.encode(&KeymasterSerialize::serializeClientParams, params);
    exchange.send();
    exchange.decode(&KeymasterSerialize::deserializeClientKeyblob, key_blob);
    if (!exchange.ok()) return exchange.error();
    return getCharacteristics(*key_blob, characteristics);
}

keymaster_error_t get_key_characteristics(const Channel& /*channel*/,
                                          const keymaster_key_blob_t* key_blob,
                                          const keymaster_blob_t* /*client_id*/,
                                          const keymaster_blob_t* /*app_data*/,
                                          keymaster_key_characteristics_t* characteristics) {
    if (!isPresent(key_blob)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (characteristics == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    return getCharacteristics(*key_blob, characteristics);
}

keymaster_error_t import_key(const Channel& channel, const keymaster_key_param_set_t* params,
                             keymaster_key_format_t format, const keymaster_blob_t* key_data,
                             keymaster_key_blob_t* key_blob,
                             keymaster_key_characteristics_t* characteristics) {
    if (params == nullptr || !isPresent(key_data)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    CborExchange exchange(channel, kImportKey);
    exchange.encode(&KeymasterSerialize::serializeClientImpKey, params, EnumArgument(format),
                    key_data);
    exchange.send();
    exchange.decode(&KeymasterSerialize::deserializeClientKeyblob, key_blob);
    if (!exchange.ok()) return exchange.error();
    return getCharacteristics(*key_blob, characteristics);
}

keymaster_error_t import_wrapped_key(
    const Channel& channel, const keymaster_key_param_set_t* unwrapping_params,
    uint64_t password_sid, uint64_t biometric_sid, std::vector<uint8_t> wrapped_key_data,
    std::vector<uint8_t> wrapping_key_blob, std::vector<uint8_t> masking_key,
    keymaster_key_blob_t* key_blob, keymaster_key_characteristics_t* characteristics) {
    // Of no effect once the encoder has taken the bytes over, which then wipes them.
    const WipeVectorAtExit wipe_masking_key(masking_key);
    if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    CborExchange exchange(channel, kImportWrappedKey);
    exchange.encode(&KeymasterSerialize::serializeClientSecureImportKey, unwrapping_params,
                    password_sid, biometric_sid, std::move(wrapped_key_data),
                    std::move(wrapping_key_blob), std::move(masking_key));
    exchange.send();
    exchange.decode(&KeymasterSerialize::deserializeClientKeyblob, key_blob);
    if (!exchange.ok()) return exchange.error();
    return getCharacteristics(*key_blob, characteristics);
}

keymaster_error_t export_key(const Channel& channel, keymaster_key_format_t format,
                             const keymaster_key_blob_t* key_blob,
                             const keymaster_blob_t* client_id, const keymaster_blob_t* app_data,
                             keymaster_blob_t* export_data) {
    if (!isPresent(key_blob)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (export_data == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    CborExchange exchange(channel, kExportKey);
    exchange.encode(&KeymasterSerialize::serializeClientExpKey, EnumArgument(format), key_blob,
                    client_id, app_data);
    exchange.send();
    exchange.decode(&KeymasterSerialize::deserializeClientExpKey, export_data);
    return exchange.error();
}

keymaster_error_t upgrade_key(const Channel& channel, const keymaster_key_blob_t* key_blob,
                              const keymaster_key_param_set_t* upgrade_params,
                              keymaster_key_blob_t* upgraded_key) {
    // Kept: an empty parameter set is refused.
    if (!isPresent(key_blob) || !isPresent(upgrade_params)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (upgraded_key == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    CborExchange exchange(channel, kUpgradeKey);
    exchange.encode(&KeymasterSerialize::serializeClientParamsKeyblob, upgrade_params, key_blob);
    exchange.send();
    exchange.decode(&KeymasterSerialize::deserializeClientKeyblob, upgraded_key);
    return exchange.error();
}

keymaster_error_t delete_key(const Channel& channel, const keymaster_key_blob_t* key_blob) {
    CborExchange exchange(channel, kDeleteKey);
    exchange.encode(&KeymasterSerialize::serializeClientKeyblob, key_blob);
    exchange.send();
    return exchange.error();
}

keymaster_error_t delete_all_keys(const Channel& channel) {
    CborExchange exchange(channel, kDeleteAllKeys);
    exchange.encodeNothing();
    exchange.send();
    return exchange.error();
}

}  // namespace keymasterdevice::cbor
