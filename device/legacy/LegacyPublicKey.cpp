#include "LegacyPublicKey.h"

#include <cstring>

#include "Log.h"

namespace keymasterdevice {
namespace {

// The parts are big-endian numbers; their offsets count from the record.
namespace rsa_key {
enum Word : uint32_t { kModulusOffset, kModulusBytes, kExponentOffset, kExponentBytes };
}
namespace ec_key {
enum Word : uint32_t { kUnread0, kUnread1, kUnread2, kXOffset, kXBytes, kYOffset, kYBytes };
}

// Points a field of the conversion at a part; a part is never longer than the shared buffer.
void setPart(const ByteSpan& part, const uint8_t** data, uint32_t* length) {
    *data = part.data;
    *length = static_cast<uint32_t>(part.length);
}

}  // namespace

keymaster_error_t exportPublicKey(const LegacyExchange& exchange, uint32_t algorithm,
                                  LegacyResponse record, KeymasterCryptoDevice& crypto,
                                  keymaster_blob_t* export_data) {
    _keymaster_export_internal_t key;
    std::memset(&key, 0xFF, sizeof(key));
    key.algorithm = algorithm;
    if (algorithm == KM_ALGORITHM_EC) {
        setPart(record.item(ec_key::kXOffset), &key.pubkey_x, &key.pubkey_x_len);
        setPart(record.item(ec_key::kYOffset), &key.pubkey_y, &key.pubkey_y_len);
    } else if (algorithm == KM_ALGORITHM_RSA) {
        setPart(record.item(rsa_key::kModulusOffset), &key.modulus, &key.modulus_len);
        setPart(record.item(rsa_key::kExponentOffset), &key.exponent, &key.exponent_len);
    } else {
        KM_LOG_ERROR(kDeviceLogTag, "Unsupported alg: %u", algorithm);
        return KM_ERROR_UNSUPPORTED_ALGORITHM;
    }
    return exchange.ok() ? crypto.internal_to_x509(&key, export_data) : exchange.error();
}

}  // namespace keymasterdevice
