// The commands that answer with a key blob: generate, upgrade, import, import wrapped, and the
// reading of characteristics.

#include <KeymasterUtils.h>

#include "KeyBlobLayout.h"
#include "KeyBlobReader.h"
#include "KeymasterCryptoDevice.h"
#include "KeymasterHalDevice.h"
#include "LegacyEcKey.h"
#include "LegacyExchange.h"

namespace keymasterdevice {
namespace {

constexpr uint32_t kLastVersionWithEcRecord = 3;
constexpr size_t kShortestKeyBlob = 395;

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

namespace upgrade_request {
enum Word : uint32_t { kCommand, kBlobOffset, kBlobBytes, kParamsOffset, kNumParams, kWords };
static_assert(kWords * kWordBytes == 20, "fixed by the protocol");
}  // namespace upgrade_request

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

// Of generate, get characteristics, upgrade and import.
namespace blob_response {
enum Word : uint32_t { kStatus, kUnread, kBlobOffset, kBlobBytes };
}  // namespace blob_response

// Kept: the pair stands one word earlier than in the other responses.
namespace wrapped_response {
enum Word : uint32_t { kStatus, kBlobOffset, kBlobBytes };
}  // namespace wrapped_response

// Records of this protocol are older than KM_TAG_EARLY_BOOT_ONLY, so it is never looked for.
keymaster_error_t getCharacteristics(const keymaster_key_blob_t& blob,
                                     keymaster_key_characteristics_t* characteristics) {
    return readCharacteristics(blob, EarlyBootRule::kIgnore, characteristics);
}

bool isBlobHeader(uint32_t magic, uint32_t zero) {
    return magic == key_blob::kMagicValue && zero == 0;
}

// The size of the blob in a response if that is a key blob.
keymaster_error_t answeredBlobSize(LegacyResponse& response, size_t* size) {
    LegacyResponse blob = response.record(response.word(blob_response::kBlobOffset));
    const uint32_t magic = blob.word(key_blob::kMagic / kWordBytes);
    const uint32_t zero = blob.word(key_blob::kZero / kWordBytes);
    const uint32_t bytes = response.word(blob_response::kBlobBytes);
    if (!response.ok() || !blob.ok()) return KM_ERROR_UNKNOWN_ERROR;
    if (!isBlobHeader(magic, zero)) return KM_ERROR_INVALID_KEY_BLOB;
    *size = bytes;
    return KM_ERROR_OK;
}

// Hands `bytes` of a response to the caller if the characteristics can be read from them.
keymaster_error_t handOutKey(keymasterutils::KeymasterUtils& transport, const ByteSpan& bytes,
                             keymaster_key_blob_t* key_blob,
                             keymaster_key_characteristics_t* characteristics) {
    MallocedBytes copy = copyToHeap(transport, bytes);
    if (!copy) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    const keymaster_error_t error = getCharacteristics({copy.get(), bytes.length}, characteristics);
    if (error == KM_ERROR_OK) *key_blob = {copy.release(), bytes.length};
    return error;
}

void clearKeyBlob(keymaster_key_blob_t* key_blob) {
    if (key_blob == nullptr || key_blob->key_material == nullptr) return;
    std::free(const_cast<uint8_t*>(key_blob->key_material));
    *key_blob = {nullptr, 0};
}

const keymaster_key_param_t* findAlgorithm(const keymaster_key_param_set_t& set) {
    if (set.params == nullptr) return nullptr;
    for (size_t i = 0; i < set.length; ++i) {
        if (set.params[i].tag == KM_TAG_ALGORITHM) return &set.params[i];
    }
    return nullptr;
}

}  // namespace

keymaster_error_t KeymasterHalDevice::generate_key_common(const keymaster_key_param_set_t* params,
                                                          keymaster_key_blob_t* key_blob) {
    if (params == nullptr || params->params == nullptr || params->length == 0) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kGenerateKey, generate_request::kWords);
    exchange.addOptionalParams(generate_request::kParamsOffset, params);
    const keymaster_error_t error = exchange.send();
    if (error != KM_ERROR_OK) return error;

    const ByteSpan blob = exchange.response().item(blob_response::kBlobOffset);
    if (!exchange.response().ok()) return KM_ERROR_UNKNOWN_ERROR;
    key_blob->key_material_size = blob.length;  // stays when there is no memory
    MallocedBytes copy = copyToHeap(*transport_, blob);
    if (!copy) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    key_blob->key_material = copy.release();
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterHalDevice::legacy_generate_key(
    const keymaster_key_param_set_t* params, keymaster_key_blob_t* key_blob,
    keymaster_key_characteristics_t* characteristics) {
    keymaster_error_t error = bringUpLink(channel(), kGenerateKey);
    if (error != KM_ERROR_OK) return error;
    error = generate_key_common(params, key_blob);
    if (error == KM_ERROR_OK) {
        error = key_blob->key_material_size >= kShortestKeyBlob
                    ? getCharacteristics(*key_blob, characteristics)
                    : KM_ERROR_INVALID_KEY_BLOB;
    }
    // Kept: on a failure whatever the caller's blob held is released, even what it came in with.
    if (error != KM_ERROR_OK) clearKeyBlob(key_blob);
    return error;
}

keymaster_error_t KeymasterHalDevice::legacy_get_key_characteristics(
    const keymaster_key_blob_t* key_blob, const keymaster_blob_t* client_id,
    const keymaster_blob_t* app_data, keymaster_key_characteristics_t* characteristics) {
    if (key_blob == nullptr || key_blob->key_material == nullptr ||
        key_blob->key_material_size == 0) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    if (characteristics == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    keymaster_error_t error = bringUpLink(channel(), kGetKeyCharacteristics);
    if (error != KM_ERROR_OK) return error;

    LegacyExchange exchange(channel(), kGetKeyCharacteristics, characteristics_request::kWords);
    exchange.addItem(characteristics_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    exchange.addOptionalItem(characteristics_request::kClientIdOffset, client_id);
    exchange.addOptionalItem(characteristics_request::kAppDataOffset, app_data);
    error = exchange.send();
    if (error != KM_ERROR_OK) return error;

    // Kept: the answered blob may stand in for the size check, but what is read is always the
    // caller's blob.
    size_t size = key_blob->key_material_size;
    if (!hasKeyBlobHeader(*key_blob)) error = answeredBlobSize(exchange.response(), &size);
    if (error != KM_ERROR_OK) return error;
    if (size < kShortestKeyBlob) return KM_ERROR_INVALID_KEY_BLOB;
    return getCharacteristics(*key_blob, characteristics);
}

keymaster_error_t KeymasterHalDevice::legacy_upgrade_key(
    const keymaster_key_blob_t* key_blob, const keymaster_key_param_set_t* upgrade_params,
    keymaster_key_blob_t* upgraded_key) {
    // Kept: a missing output is answered like a missing input here.
    if (key_blob == nullptr || key_blob->key_material == nullptr || upgraded_key == nullptr) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    keymaster_error_t error = bringUpLink(channel(), kUpgradeKey);
    if (error != KM_ERROR_OK) return error;

    LegacyExchange exchange(channel(), kUpgradeKey, upgrade_request::kWords);
    exchange.addItem(upgrade_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    exchange.addOptionalParams(upgrade_request::kParamsOffset, upgrade_params);
    error = exchange.send();
    if (error != KM_ERROR_OK) return error;

    const ByteSpan blob = exchange.response().item(blob_response::kBlobOffset);
    if (!exchange.response().ok()) return KM_ERROR_UNKNOWN_ERROR;
    MallocedBytes copy(static_cast<uint8_t*>(std::malloc(blob.length)));
    if (!copy) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    upgraded_key->key_material_size = blob.length;  // stays when the copy falls short
    if (copyOut(*transport_, copy.get(), blob) != blob.length) {
        return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    }
    upgraded_key->key_material = copy.release();
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterHalDevice::legacy_import_key(
    const keymaster_key_param_set_t* params, keymaster_key_format_t format,
    const keymaster_blob_t* key_data, keymaster_key_blob_t* key_blob,
    keymaster_key_characteristics_t* characteristics) {
    if (params == nullptr || key_data == nullptr || key_data->data == nullptr ||
        key_data->data_length == 0) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    keymaster_error_t error = bringUpLink(channel(), kImportKey);
    if (error != KM_ERROR_OK) return error;

    LegacyExchange exchange(channel(), kImportKey, import_request::kWords);
    exchange.setWord(import_request::kFormat, static_cast<uint32_t>(format));
    exchange.addOptionalParams(import_request::kParamsOffset, params);
    if (exchange.error() != KM_ERROR_OK) return exchange.error();
    const keymaster_key_param_t* algorithm = findAlgorithm(*params);
    if (algorithm == nullptr) return KM_ERROR_INVALID_KEY_BLOB;
    if (algorithm->enumerated == KM_ALGORITHM_EC &&
        transport_->getKeymasterVersion() <= kLastVersionWithEcRecord) {
        error = addEcKey(exchange, import_request::kKeyOffset, *crypto_device_, *key_data);
        if (error != KM_ERROR_OK) return error;
    } else {
        exchange.addItem(import_request::kKeyOffset, key_data->data, key_data->data_length);
    }
    error = exchange.send();
    if (error != KM_ERROR_OK) return error;

    const ByteSpan blob = exchange.response().item(blob_response::kBlobOffset);
    if (!exchange.response().ok()) return KM_ERROR_UNKNOWN_ERROR;
    return handOutKey(*transport_, blob, key_blob, characteristics);
}

keymaster_error_t KeymasterHalDevice::legacy_import_wrapped_key(
    const keymaster_key_param_set_t* unwrapping_params, uint64_t password_sid,
    uint64_t biometric_sid, std::vector<uint8_t> wrapped_key_data,
    std::vector<uint8_t> wrapping_key_blob, std::vector<uint8_t> masking_key,
    keymaster_key_blob_t* key_blob, keymaster_key_characteristics_t* characteristics) {
    if (key_blob == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    keymaster_error_t error = bringUpLink(channel(), kImportWrappedKey);
    if (error != KM_ERROR_OK) return error;

    using namespace wrapped_request;
    LegacyExchange exchange(channel(), kImportWrappedKey, kWords);
    exchange.setWords64(kPasswordSidLow, password_sid);
    exchange.setWords64(kBiometricSidLow, biometric_sid);
    exchange.addItem(kWrappingKeyOffset, wrapping_key_blob.data(), wrapping_key_blob.size());
    exchange.addItem(kWrappedKeyOffset, wrapped_key_data.data(), wrapped_key_data.size());
    exchange.addItem(kMaskingKeyOffset, masking_key.data(), masking_key.size());
    exchange.addOptionalParams(kParamsOffset, unwrapping_params);
    error = exchange.send();
    if (error != KM_ERROR_OK) return error;

    const ByteSpan blob = exchange.response().item(wrapped_response::kBlobOffset);
    if (!exchange.response().ok()) return KM_ERROR_UNKNOWN_ERROR;
    return handOutKey(*transport_, blob, key_blob, characteristics);
}

}  // namespace keymasterdevice
