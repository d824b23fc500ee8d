// Keys over records: generate, import, export, upgrade, delete and what a blob tells about itself.

#include <KeymasterUtils.h>

#include <cstdlib>

#include "FbeKey.h"
#include "KeyBlobLayout.h"
#include "KeyBlobReader.h"
#include "KeymasterHalDevice.h"
#include "LegacyEcKey.h"
#include "LegacyExchange.h"
#include "LegacyPublicKey.h"
#include "Outputs.h"
#include "Presence.h"

namespace keymasterdevice {
namespace {

constexpr uint32_t kLastVersionWithEcRecord = 3;
constexpr size_t kMinKeyBlobBytes = 395;

namespace generate_request {
enum Word : uint32_t { kCommand, kParamsOffset, kNumParams, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace generate_request

namespace characteristics_request {
enum Word : uint32_t {
    kCommand,
    kBlobOffset,
    kBlobBytes,
    kClientIdOffset,
    kClientIdBytes,
    kAppDataOffset,
    kAppDataBytes,
    kWords,
};
static_assert(kWords * kWordBytes == 28, "fixed by the protocol");
}  // namespace characteristics_request

namespace import_request {
enum Word : uint32_t {
    kCommand,
    kFormat,
    kParamsOffset,
    kNumParams,
    kKeyOffset,
    kKeyBytes,  // of an EC record: the offset at which its last component ends
    kWords,
};
static_assert(kWords * kWordBytes == 24, "fixed by the protocol");
}  // namespace import_request

namespace wrapped_request {
// Kept: the wrapping key comes before the wrapped one, unlike in the argument list.
enum Word : uint32_t {
    kCommand,
    kPasswordSidLow,
    kPasswordSidHigh,
    kBiometricSidLow,
    kBiometricSidHigh,
    kWrappingKeyOffset,
    kWrappingKeyBytes,
    kWrappedKeyOffset,
    kWrappedKeyBytes,
    kMaskingKeyOffset,
    kMaskingKeyBytes,
    kParamsOffset,
    kNumParams,
    kWords,
};
static_assert(kWords * kWordBytes == 52, "fixed by the protocol");
}  // namespace wrapped_request

namespace export_request {
enum Word : uint32_t {
    kCommand,
    kBlobOffset,
    kBlobBytes,
    kFormat,
    kClientIdOffset,
    kClientIdBytes,
    kAppDataOffset,
    kAppDataBytes,
    kWords,
};
static_assert(kWords * kWordBytes == 32, "fixed by the protocol");
}  // namespace export_request

namespace upgrade_request {
enum Word : uint32_t { kCommand, kBlobOffset, kBlobBytes, kParamsOffset, kNumParams, kWords };
static_assert(kWords * kWordBytes == 20, "fixed by the protocol");
}  // namespace upgrade_request

namespace delete_request {
enum Word : uint32_t { kCommand, kBlobOffset, kBlobBytes, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace delete_request

namespace delete_all_request {
enum Word : uint32_t { kCommand, kWords };
static_assert(kWords * kWordBytes == 4, "fixed by the protocol");
}  // namespace delete_all_request

// Of generate, get characteristics, upgrade and import.
namespace blob_response {
enum Word : uint32_t { kStatus, kUnread, kBlobOffset, kBlobBytes };
}  // namespace blob_response

// Kept: the pair stands one word earlier than in the other responses.
namespace wrapped_response {
enum Word : uint32_t { kStatus, kBlobOffset, kBlobBytes };
}  // namespace wrapped_response

namespace export_response {
enum Word : uint32_t { kStatus, kUnread, kAlgorithm, kKeyOffset, kKeyBytes, kWords };
constexpr uint32_t kBytes = kWords * kWordBytes;
static_assert(kBytes == 20, "fixed by the protocol");
}  // namespace export_response

// Records of this protocol are older than KM_TAG_EARLY_BOOT_ONLY, so it is never looked for.
keymaster_error_t getCharacteristics(const keymaster_key_blob_t& blob,
                                     keymaster_key_characteristics_t* characteristics) {
    return readCharacteristics(blob, EarlyBootRule::kIgnore, characteristics);
}

// The size of the blob in a response, which must be a key blob.
size_t readBlobSize(LegacyExchange& exchange) {
    LegacyResponse& response = exchange.response();
    const uint32_t offset = response.word(blob_response::kBlobOffset);
    const uint32_t size = response.word(blob_response::kBlobBytes);
    // The header is looked at whatever size the blob is said to have.
    const ByteSpan header = response.bytes(offset, key_blob::kVersion);
    if (exchange.ok() && !hasKeyBlobHeader({header.data, header.length})) {
        exchange.storeFirstError(KM_ERROR_INVALID_KEY_BLOB);
    }
    return size;
}

// Copies the key blob of a response to the caller if its characteristics can be read.
keymaster_error_t copyToCaller(LegacyExchange& exchange, const ByteSpan& bytes,
                               keymaster_key_blob_t* key_blob,
                               keymaster_key_characteristics_t* characteristics) {
    MallocedBytes copy = exchange.copyToHeap(bytes);
    if (!copy) return exchange.error();
    const keymaster_error_t error = getCharacteristics({copy.get(), bytes.length}, characteristics);
    if (error == KM_ERROR_OK) *key_blob = {copy.release(), bytes.length};
    return error;
}

const keymaster_key_param_t* findAlgorithm(const keymaster_key_param_set_t& set) {
    if (set.params == nullptr) return nullptr;
    for (size_t i = 0; i < set.length; ++i) {
        if (set.params[i].tag == KM_TAG_ALGORITHM) return &set.params[i];
    }
    return nullptr;
}

// From these versions on the secure application encodes public keys itself.
bool encodesPublicKeys(keymasterutils::KeymasterUtils& transport) {
    return transport.getKeymasterVersion() >= 3 && transport.getKeymasterTaMinorVersion() >= 113 &&
           transport.getKeymasterHalMinorVersion() != 0;
}

}  // namespace

keymaster_error_t KeymasterHalDevice::generate_key_common(const keymaster_key_param_set_t* params,
                                                          keymaster_key_blob_t* key_blob) {
    if (!isPresent(params)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kGenerateKey, generate_request::kWords);
    exchange.addOptionalParams(generate_request::kParamsOffset, params);
    exchange.send();
    exchange.copyToOutput(exchange.response().item(blob_response::kBlobOffset), key_blob);
    return exchange.error();
}

keymaster_error_t KeymasterHalDevice::legacy_generate_key(
    const keymaster_key_param_set_t* params, keymaster_key_blob_t* key_blob,
    keymaster_key_characteristics_t* characteristics) {
    ErrorWord error = bringUpLink(channel(), kGenerateKey);
    if (error != KM_ERROR_OK) return errorFromWord(error);
    error = errorToWord(generate_key_common(params, key_blob));
    if (error == KM_ERROR_OK) {
        error = key_blob->key_material_size >= kMinKeyBlobBytes
                    ? getCharacteristics(*key_blob, characteristics)
                    : KM_ERROR_INVALID_KEY_BLOB;
    }
    // Kept: on a failure whatever the caller's blob held is released, even what it came in with.
    if (error != KM_ERROR_OK && hasArray(key_blob)) releaseOutput(key_blob);
    return errorFromWord(error);
}

keymaster_error_t KeymasterHalDevice::legacy_get_key_characteristics(
    const keymaster_key_blob_t* key_blob, const keymaster_blob_t* client_id,
    const keymaster_blob_t* app_data, keymaster_key_characteristics_t* characteristics) {
    if (!isPresent(key_blob)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (characteristics == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kGetKeyCharacteristics, characteristics_request::kWords);
    exchange.addItem(characteristics_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    exchange.addOptionalItem(characteristics_request::kClientIdOffset, client_id);
    exchange.addOptionalItem(characteristics_request::kAppDataOffset, app_data);
    exchange.send();
    if (!exchange.ok()) return exchange.error();

    // Kept: where the caller's blob does not begin as a key blob, the size of the response's blob
    // is checked, but what is read is always the caller's blob.
    const size_t size =
        hasKeyBlobHeader(*key_blob) ? key_blob->key_material_size : readBlobSize(exchange);
    if (!exchange.ok()) return exchange.error();
    if (size < kMinKeyBlobBytes) return KM_ERROR_INVALID_KEY_BLOB;
    return getCharacteristics(*key_blob, characteristics);
}

keymaster_error_t KeymasterHalDevice::legacy_import_key(
    const keymaster_key_param_set_t* params, keymaster_key_format_t format,
    const keymaster_blob_t* key_data, keymaster_key_blob_t* key_blob,
    keymaster_key_characteristics_t* characteristics) {
    if (params == nullptr || !isPresent(key_data)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kImportKey, import_request::kWords);
    exchange.setWord(import_request::kFormat, enumToBits(format));
    exchange.addOptionalParams(import_request::kParamsOffset, params);
    if (!exchange.ok()) return exchange.error();
    const keymaster_key_param_t* algorithm = findAlgorithm(*params);
    if (algorithm == nullptr) return KM_ERROR_INVALID_KEY_BLOB;
    if (algorithm->enumerated == KM_ALGORITHM_EC &&
        transport_->getKeymasterVersion() <= kLastVersionWithEcRecord) {
        addEcKey(exchange, import_request::kKeyOffset, *crypto_device_, *key_data);
    } else {
        exchange.addItem(import_request::kKeyOffset, key_data->data, key_data->data_length);
    }
    exchange.send();
    return copyToCaller(exchange, exchange.response().item(blob_response::kBlobOffset), key_blob,
                        characteristics);
}

keymaster_error_t KeymasterHalDevice::legacy_import_wrapped_key(
    const keymaster_key_param_set_t* unwrapping_params, uint64_t password_sid,
    uint64_t biometric_sid, std::vector<uint8_t> wrapped_key_data,
    std::vector<uint8_t> wrapping_key_blob, std::vector<uint8_t> masking_key,
    keymaster_key_blob_t* key_blob, keymaster_key_characteristics_t* characteristics) {
    const WipeVectorAtExit wipe_masking_key(masking_key);
    if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    using namespace wrapped_request;
    LegacyExchange exchange(channel(), kImportWrappedKey, kWords);
    exchange.setWords64(kPasswordSidLow, password_sid);
    exchange.setWords64(kBiometricSidLow, biometric_sid);
    exchange.addItem(kWrappingKeyOffset, wrapping_key_blob.data(), wrapping_key_blob.size());
    exchange.addItem(kWrappedKeyOffset, wrapped_key_data.data(), wrapped_key_data.size());
    exchange.addItem(kMaskingKeyOffset, masking_key.data(), masking_key.size());
    exchange.addOptionalParams(kParamsOffset, unwrapping_params);
    exchange.send();
    return copyToCaller(exchange, exchange.response().item(wrapped_response::kBlobOffset), key_blob,
                        characteristics);
}

keymaster_error_t KeymasterHalDevice::legacy_export_key(keymaster_key_format_t format,
                                                        const keymaster_key_blob_t* key_blob,
                                                        const keymaster_blob_t* client_id,
                                                        const keymaster_blob_t* app_data,
                                                        keymaster_blob_t* export_data) {
    if (!isPresent(key_blob)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (export_data == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kExportKey, export_request::kWords);
    exchange.setWord(export_request::kFormat, enumToBits(format));
    exchange.addItem(export_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    exchange.addOptionalItem(export_request::kClientIdOffset, client_id);
    exchange.addOptionalItem(export_request::kAppDataOffset, app_data);
    exchange.setResponseOffsets(export_response::kKeyOffset, export_response::kBytes);
    exchange.send();
    if (!exchange.ok()) return exchange.error();

    LegacyResponse& response = exchange.response();
    if (encodesPublicKeys(*transport_)) {
        exchange.copyToOutput(response.item(export_response::kKeyOffset), export_data);
        return exchange.error();
    }
    const uint32_t algorithm = response.word(export_response::kAlgorithm);
    const uint32_t offset = response.word(export_response::kKeyOffset);
    if (!exchange.ok()) return exchange.error();
    return exportPublicKey(exchange, algorithm, response.record(offset), *crypto_device_,
                           export_data);
}

keymaster_error_t KeymasterHalDevice::legacy_upgrade_key(
    const keymaster_key_blob_t* key_blob, const keymaster_key_param_set_t* upgrade_params,
    keymaster_key_blob_t* upgraded_key) {
    // Kept: an empty blob is let through, and a missing output is answered like a missing input.
    if (!hasArray(key_blob) || upgraded_key == nullptr) return KM_ERROR_UNEXPECTED_NULL_POINTER;

    LegacyExchange exchange(channel(), kUpgradeKey, upgrade_request::kWords);
    exchange.addItem(upgrade_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    exchange.addOptionalParams(upgrade_request::kParamsOffset, upgrade_params);
    exchange.send();
    const ByteSpan blob = exchange.response().item(blob_response::kBlobOffset);
    if (!exchange.ok()) return exchange.error();
    MallocedBytes copy = mallocBytes(blob.length);
    if (!copy) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    upgraded_key->key_material_size = blob.length;  // stays when the copy falls short
    if (exchange.copyTo(copy.get(), blob) != blob.length) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    upgraded_key->key_material = copy.release();
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterHalDevice::legacy_delete_key(const keymaster_key_blob_t* key_blob) {
    if (!hasArray(key_blob)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (key_blob->key_material_size == kFbeKeyBytes) {
        clearFbeKey(key_blob->key_material);
        return KM_ERROR_OK;
    }
    LegacyExchange exchange(channel(), kDeleteKey, delete_request::kWords);
    exchange.addItem(delete_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    exchange.send();
    return exchange.error();
}

keymaster_error_t KeymasterHalDevice::legacy_delete_all_keys() {
    LegacyExchange exchange(channel(), kDeleteAllKeys, delete_all_request::kWords);
    exchange.send();
    return exchange.error();
}

}  // namespace keymasterdevice
