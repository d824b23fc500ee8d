// Export of public keys.

#include <KeymasterUtils.h>

#include <cstring>

#include "KeymasterCryptoDevice.h"
#include "KeymasterHalDevice.h"
#include "LegacyExchange.h"

namespace keymasterdevice {
namespace {

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

namespace export_response {
enum Word : uint32_t { kStatus, kUnread, kAlgorithm, kKeyOffset, kKeyBytes, kWords };
constexpr uint32_t kBytes = kWords * kWordBytes;
static_assert(kBytes == 20, "fixed by the protocol");
}  // namespace export_response

// Public keys that the secure application leaves to be encoded; offsets count from the record.
namespace rsa_key {
enum Word : uint32_t { kModulusOffset, kModulusBytes, kExponentOffset, kExponentBytes };
}
namespace ec_key {
enum Word : uint32_t { kUnread0, kUnread1, kUnread2, kXOffset, kXBytes, kYOffset, kYBytes };
}

// From these versions on the secure application encodes public keys itself.
bool encodesPublicKeys(keymasterutils::KeymasterUtils& transport) {
    return transport.getKeymasterVersion() >= 3 && transport.getKeymasterTaMinorVersion() >= 113 &&
           transport.getKeymasterHalMinorVersion() != 0;
}

keymaster_error_t handOutEncoded(keymasterutils::KeymasterUtils& transport, const ByteSpan& encoded,
                                 keymaster_blob_t* export_data) {
    export_data->data_length = encoded.length;  // stays when there is no memory
    MallocedBytes copy = copyToHeap(transport, encoded);
    if (!copy) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    export_data->data = copy.release();
    return KM_ERROR_OK;
}

// Points `key` at the parts of the public key in the response.
keymaster_error_t takeApart(LegacyResponse& response, _keymaster_export_internal_t* key) {
    const uint32_t algorithm = response.word(export_response::kAlgorithm);
    const uint32_t offset = response.word(export_response::kKeyOffset);
    if (!response.ok()) return KM_ERROR_UNKNOWN_ERROR;
    LegacyResponse record = response.record(offset);
    key->algorithm = algorithm;
    if (algorithm == KM_ALGORITHM_EC) {
        const ByteSpan x = record.item(ec_key::kXOffset);
        const ByteSpan y = record.item(ec_key::kYOffset);
        key->pubkey_x = x.data;
        key->pubkey_x_len = x.length;
        key->pubkey_y = y.data;
        key->pubkey_y_len = y.length;
    } else if (algorithm == KM_ALGORITHM_RSA) {
        const ByteSpan modulus = record.item(rsa_key::kModulusOffset);
        const ByteSpan exponent = record.item(rsa_key::kExponentOffset);
        key->modulus = modulus.data;
        key->modulus_len = modulus.length;
        key->exponent = exponent.data;
        key->exponent_len = exponent.length;
    } else {
        KM_LOG_ERROR(kDeviceLogTag, "Unsupported alg: %u", algorithm);
        return KM_ERROR_UNSUPPORTED_ALGORITHM;
    }
    return record.ok() ? KM_ERROR_OK : KM_ERROR_UNKNOWN_ERROR;
}

}  // namespace

keymaster_error_t KeymasterHalDevice::legacy_export_key(keymaster_key_format_t format,
                                                        const keymaster_key_blob_t* key_blob,
                                                        const keymaster_blob_t* client_id,
                                                        const keymaster_blob_t* app_data,
                                                        keymaster_blob_t* export_data) {
    if (key_blob == nullptr || key_blob->key_material == nullptr ||
        key_blob->key_material_size == 0) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    if (export_data == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    keymaster_error_t error = bringUpLink(channel(), kExportKey);
    if (error != KM_ERROR_OK) return error;

    LegacyExchange exchange(channel(), kExportKey, export_request::kWords);
    exchange.setWord(export_request::kFormat, static_cast<uint32_t>(format));
    exchange.addItem(export_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    exchange.addOptionalItem(export_request::kClientIdOffset, client_id);
    exchange.addOptionalItem(export_request::kAppDataOffset, app_data);
    exchange.labelResponse(export_response::kKeyOffset, export_response::kBytes);
    error = exchange.send();
    if (error != KM_ERROR_OK) return error;

    LegacyResponse& response = exchange.response();
    if (encodesPublicKeys(*transport_)) {
        const ByteSpan encoded = response.item(export_response::kKeyOffset);
        if (!response.ok()) return KM_ERROR_UNKNOWN_ERROR;
        return handOutEncoded(*transport_, encoded, export_data);
    }
    _keymaster_export_internal_t key;
    std::memset(&key, 0xFF, sizeof(key));
    error = takeApart(response, &key);
    return error != KM_ERROR_OK ? error : crypto_device_->internal_to_x509(&key, export_data);
}

}  // namespace keymasterdevice
