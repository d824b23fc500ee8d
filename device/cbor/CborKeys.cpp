// The operations of the device core over CBOR.
//
// Every method reads the same: hand over to the legacy twin, check the arguments, clear the
// outputs, exchange, and what is left to do.

#include <KeymasterUtils.h>

#include <utility>

#include "AttestationDates.h"
#include "BadAlloc.h"
#include "KeyBlobReader.h"
#include "KeymasterHalDevice.h"
#include "KeymasterSerialize.h"

namespace keymasterdevice {

// The identifiers of a command: they are those of the fixed-layout record plus 0x2000.
struct CborCommand {
    uint32_t trusted_environment;
    uint32_t strongbox;
};

namespace {

constexpr CborCommand kGenerateKey = {0x2108, 0x2508};
constexpr CborCommand kImportKey = {0x210B, 0x250B};
constexpr CborCommand kExportKey = {0x210C, 0x250C};
constexpr CborCommand kDeleteKey = {0x210D, 0x250D};
constexpr CborCommand kDeleteAllKeys = {0x210E, 0x210E};  // Kept: StrongBox has none of its own.
constexpr CborCommand kBeginOperation = {0x210F, 0x250F};
constexpr CborCommand kUpdateOperation = {0x2111, 0x2511};
constexpr CborCommand kFinishOperation = {0x2112, 0x2512};
constexpr CborCommand kAbortOperation = {0x2113, 0x2513};
constexpr CborCommand kUpgradeKey = {0x2114, 0x2514};
constexpr CborCommand kAttestKey = {0x2115, 0x2515};
constexpr CborCommand kConfigure = {0x2116, 0x2116};
constexpr CborCommand kImportWrappedKey = {0x2117, 0x2517};
constexpr CborCommand kSetEarlyBootEnded = {0x2119, 0x211C};  // these two have no legacy record
constexpr CborCommand kSetDeviceLocked = {0x211A, 0x211D};
constexpr CborCommand kDestroyDeviceIds = {0x220B, 0x2704};
constexpr CborCommand kGetHmacSharingParameters = {0x220E, 0x2706};
constexpr CborCommand kComputeSharedHmac = {0x220F, 0x2707};

// For requests without a body.
constexpr auto kNoBody = [](KeymasterSerialize&, keymaster_blob_t* request) {
    request->data_length = 0;
    return KM_ERROR_OK;
};

// For answers whose bytes do not matter.
constexpr auto kIgnoreBody = [](KeymasterSerialize&, const keymaster_blob_t&) {
    return KM_ERROR_OK;
};

bool hasMaterial(const keymaster_key_blob_t* key_blob) {
    return key_blob != nullptr && key_blob->key_material != nullptr &&
           key_blob->key_material_size != 0;
}

template <typename Record>
void clear(Record* output) {
    if (output != nullptr) *output = {};
}

// The blobs of these secure applications tell about early boot.
keymaster_error_t getCharacteristics(const keymaster_key_blob_t& key_blob,
                                     keymaster_key_characteristics_t* characteristics) {
    return readCharacteristics(key_blob, EarlyBootRule::kRead, characteristics);
}

}  // namespace

// One request and its answer. `encode` fills the request, `decode` takes the answer apart; the
// first error ends it.
template <typename Encode, typename Decode>
keymaster_error_t KeymasterHalDevice::exchange(const CborCommand& command, Encode encode,
                                               Decode decode) {
    keymaster_error_t result = transport_->hsm_init();
    if (result != KM_ERROR_OK) return result;
    keymaster_blob_t request = {nullptr, 0};
    // Kept: the result of init is not looked at; a request without a buffer does not encode.
    transport_->init(isStrongBox() ? command.strongbox : command.trusted_environment, &request);

    KeymasterSerialize codec(transport_.get());
    result = encode(codec, &request);
    if (result != KM_ERROR_OK) return result;
    keymaster_blob_t response = {nullptr, 0};
    result = transport_->sendCmd(request, &response);
    if (result != KM_ERROR_OK) return result;
    return decode(codec, response);
}

// ---- Keys ----

keymaster_error_t KeymasterHalDevice::configure(const keymaster_key_param_set_t* params) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) return legacy_configure(params);
        return exchange(
            kConfigure,
            [&](auto& codec, auto* request) {
                return codec.serializeClientParams(params, request);
            },
            kIgnoreBody);
    });
}

keymaster_error_t KeymasterHalDevice::generate_key(
    const keymaster_key_param_set_t* params, keymaster_key_blob_t* key_blob,
    keymaster_key_characteristics_t* characteristics) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) return legacy_generate_key(params, key_blob, characteristics);
        if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
        const keymaster_error_t result = exchange(
            kGenerateKey,
            [&](auto& codec, auto* request) {
                return codec.serializeClientParams(params, request);
            },
            [&](auto& codec, auto& response) {
                return codec.deserializeClientKeyblob(response, key_blob);
            });
        if (result != KM_ERROR_OK) return result;
        return getCharacteristics(*key_blob, characteristics);
    });
}

keymaster_error_t KeymasterHalDevice::get_key_characteristics(
    const keymaster_key_blob_t* key_blob, const keymaster_blob_t* client_id,
    const keymaster_blob_t* app_data, keymaster_key_characteristics_t* characteristics) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) {
            return legacy_get_key_characteristics(key_blob, client_id, app_data, characteristics);
        }
        if (!hasMaterial(key_blob)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
        if (characteristics == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
        return getCharacteristics(*key_blob, characteristics);
    });
}

keymaster_error_t KeymasterHalDevice::import_key(const keymaster_key_param_set_t* params,
                                                 keymaster_key_format_t format,
                                                 const keymaster_blob_t* key_data,
                                                 keymaster_key_blob_t* key_blob,
                                                 keymaster_key_characteristics_t* characteristics) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) {
            return legacy_import_key(params, format, key_data, key_blob, characteristics);
        }
        if (params == nullptr || key_data == nullptr || key_data->data == nullptr ||
            key_data->data_length == 0) {
            return KM_ERROR_UNEXPECTED_NULL_POINTER;
        }
        if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
        const keymaster_error_t result = exchange(
            kImportKey,
            [&](auto& codec, auto* request) {
                return codec.serializeClientImpKey(params, format, key_data, request);
            },
            [&](auto& codec, auto& response) {
                return codec.deserializeClientKeyblob(response, key_blob);
            });
        if (result != KM_ERROR_OK) return result;
        return getCharacteristics(*key_blob, characteristics);
    });
}

keymaster_error_t KeymasterHalDevice::import_wrapped_key(
    const keymaster_key_param_set_t* unwrapping_params, uint64_t password_sid,
    uint64_t biometric_sid, std::vector<uint8_t> wrapped_key_data,
    std::vector<uint8_t> wrapping_key_blob, std::vector<uint8_t> masking_key,
    keymaster_key_blob_t* key_blob, keymaster_key_characteristics_t* characteristics) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) {
            return legacy_import_wrapped_key(
                unwrapping_params, password_sid, biometric_sid, std::move(wrapped_key_data),
                std::move(wrapping_key_blob), std::move(masking_key), key_blob, characteristics);
        }
        if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
        const keymaster_error_t result = exchange(
            kImportWrappedKey,
            [&](auto& codec, auto* request) {
                return codec.serializeClientSecureImportKey(
                    unwrapping_params, password_sid, biometric_sid, std::move(wrapped_key_data),
                    std::move(wrapping_key_blob), std::move(masking_key), request);
            },
            [&](auto& codec, auto& response) {
                return codec.deserializeClientKeyblob(response, key_blob);
            });
        if (result != KM_ERROR_OK) return result;
        return getCharacteristics(*key_blob, characteristics);
    });
}

keymaster_error_t KeymasterHalDevice::export_key(keymaster_key_format_t format,
                                                 const keymaster_key_blob_t* key_blob,
                                                 const keymaster_blob_t* client_id,
                                                 const keymaster_blob_t* app_data,
                                                 keymaster_blob_t* export_data) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) {
            return legacy_export_key(format, key_blob, client_id, app_data, export_data);
        }
        if (!hasMaterial(key_blob)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
        if (export_data == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
        return exchange(
            kExportKey,
            [&](auto& codec, auto* request) {
                return codec.serializeClientExpKey(format, key_blob, client_id, app_data, request);
            },
            [&](auto& codec, auto& response) {
                return codec.deserializeClientExpKey(response, export_data);
            });
    });
}

keymaster_error_t KeymasterHalDevice::attest_key(const keymaster_key_blob_t* key_blob,
                                                 const keymaster_key_param_set_t* params,
                                                 keymaster_cert_chain_t* cert_chain) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) return legacy_attest_key(key_blob, params, cert_chain);
        if (!hasMaterial(key_blob) || params == nullptr || cert_chain == nullptr) {
            return KM_ERROR_UNEXPECTED_NULL_POINTER;
        }
        // Kept: an entry array is demanded from the caller, although it is not used.
        if (cert_chain->entries == nullptr || cert_chain->entry_count == 0) {
            return KM_ERROR_OUTPUT_PARAMETER_NULL;
        }
        return exchange(
            kAttestKey,
            [&](auto& codec, auto* request) {
                const AttestationDates dates = readAttestationDates(*key_blob);
                return codec.serializeClientAttestKey(params, key_blob, dates.active, dates.expire,
                                                      request);
            },
            [&](auto& codec, auto& response) {
                return codec.deserializeClientAttestKey(response, cert_chain);
            });
    });
}

keymaster_error_t KeymasterHalDevice::upgrade_key(const keymaster_key_blob_t* key_blob,
                                                  const keymaster_key_param_set_t* upgrade_params,
                                                  keymaster_key_blob_t* upgraded_key) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) {
            return legacy_upgrade_key(key_blob, upgrade_params, upgraded_key);
        }
        // Kept: an empty parameter set is refused.
        if (!hasMaterial(key_blob) || upgrade_params == nullptr ||
            upgrade_params->params == nullptr || upgrade_params->length == 0) {
            return KM_ERROR_UNEXPECTED_NULL_POINTER;
        }
        if (upgraded_key == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
        return exchange(
            kUpgradeKey,
            [&](auto& codec, auto* request) {
                return codec.serializeClientParamsKeyblob(upgrade_params, key_blob, request);
            },
            [&](auto& codec, auto& response) {
                return codec.deserializeClientKeyblob(response, upgraded_key);
            });
    });
}

keymaster_error_t KeymasterHalDevice::delete_key(const keymaster_key_blob_t* key_blob) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) return legacy_delete_key(key_blob);
        return exchange(
            kDeleteKey,
            [&](auto& codec, auto* request) {
                return codec.serializeClientKeyblob(key_blob, request);
            },
            kIgnoreBody);
    });
}

keymaster_error_t KeymasterHalDevice::delete_all_keys() {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) return legacy_delete_all_keys();
        return exchange(kDeleteAllKeys, kNoBody, kIgnoreBody);
    });
}

keymaster_error_t KeymasterHalDevice::destroy_device_ids() {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) return legacy_destroy_device_ids();
        return exchange(
            kDestroyDeviceIds,
            [](auto& codec, auto* request) {
                // Kept: the flag is false, always.
                return codec.serializeClientDestroyDeviceIds(false, request);
            },
            kIgnoreBody);
    });
}

// ---- Operations ----

keymaster_error_t KeymasterHalDevice::begin_operation(keymaster_purpose_t purpose,
                                                      const keymaster_key_blob_t* key_blob,
                                                      const keymaster_key_param_set_t* params,
                                                      keymaster_key_param_set_t* out_params,
                                                      uint64_t* op_handle) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) {
            return legacy_begin_operation(purpose, key_blob, params, out_params, op_handle);
        }
        // Kept: an empty blob is let through.
        if (key_blob == nullptr || key_blob->key_material == nullptr) {
            return KM_ERROR_UNEXPECTED_NULL_POINTER;
        }
        clear(out_params);
        if (op_handle == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
        return exchange(
            kBeginOperation,
            [&](auto& codec, auto* request) {
                return codec.serializeClientBegin(purpose, params, key_blob, request);
            },
            [&](auto& codec, auto& response) {
                return codec.deserializeClientBegin(response, out_params, op_handle);
            });
    });
}

keymaster_error_t KeymasterHalDevice::update_operation(
    uint64_t op_handle, const keymaster_key_param_set_t* params, const keymaster_blob_t* input,
    uint32_t* input_consumed, keymaster_key_param_set_t* out_params, keymaster_blob_t* output) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) {
            return legacy_update_operation(op_handle, params, input, input_consumed, out_params,
                                           output);
        }
        if (input_consumed == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
        clear(out_params);
        clear(output);
        clear(input_consumed);
        return exchange(
            kUpdateOperation,
            [&](auto& codec, auto* request) {
                return codec.serializeClientUpdate(op_handle, params, input, request);
            },
            [&](auto& codec, auto& response) {
                return codec.deserializeClientUpdate(response, out_params, output, input_consumed);
            });
    });
}

keymaster_error_t KeymasterHalDevice::finish_operation(uint64_t op_handle,
                                                       const keymaster_key_param_set_t* params,
                                                       const keymaster_blob_t* input,
                                                       const keymaster_blob_t* signature,
                                                       keymaster_key_param_set_t* out_params,
                                                       keymaster_blob_t* output) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) {
            return legacy_finish_operation(op_handle, params, input, signature, out_params, output);
        }
        clear(out_params);
        clear(output);
        return exchange(
            kFinishOperation,
            [&](auto& codec, auto* request) {
                return codec.serializeClientFinish(op_handle, params, input, signature, request);
            },
            [&](auto& codec, auto& response) {
                return codec.deserializeClientFinish(response, out_params, output);
            });
    });
}

keymaster_error_t KeymasterHalDevice::abort_operation(uint64_t op_handle) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) return legacy_abort_operation(op_handle);
        return exchange(
            kAbortOperation,
            [&](auto& codec, auto* request) {
                return codec.serializeClientAbort(op_handle, request);
            },
            kIgnoreBody);
    });
}

// ---- HMAC agreement and device state ----

keymaster_error_t KeymasterHalDevice::get_hmac_sharing_parameters(hmac_sharing_params_t* params) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) return legacy_get_hmac_sharing_parameters(params);
        if (params == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
        return exchange(kGetHmacSharingParameters, kNoBody, [&](auto& codec, auto& response) {
            return codec.deserializeClientGetHmacParams(response, params);
        });
    });
}

keymaster_error_t KeymasterHalDevice::compute_shared_hmac(std::vector<hmac_sharing_params_t> params,
                                                          std::vector<uint8_t>& sharing_check) {
    return catchBadAlloc([&] {
        if (transport_->isLegacy()) {
            return legacy_compute_shared_hmac(std::move(params), sharing_check);
        }
        return exchange(
            kComputeSharedHmac,
            [&](auto& codec, auto* request) {
                return codec.serializeClientComputeHmacParams(std::move(params), request);
            },
            [&](auto& codec, auto& response) {
                return codec.deserializeClientComputeHmacParams(response, sharing_check);
            });
    });
}

keymaster_error_t KeymasterHalDevice::set_early_boot_ended() {
    return catchBadAlloc([&] { return exchange(kSetEarlyBootEnded, kNoBody, kIgnoreBody); });
}

keymaster_error_t KeymasterHalDevice::set_device_locked(bool password_only) {
    return catchBadAlloc([&] {
        return exchange(
            kSetDeviceLocked,
            [&](auto& codec, auto* request) {
                return codec.serializeClientSetDeviceLocked(password_only, request);
            },
            kIgnoreBody);
    });
}

}  // namespace keymasterdevice
