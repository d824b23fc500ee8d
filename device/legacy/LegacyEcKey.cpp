#include "LegacyEcKey.h"

namespace keymasterdevice {
namespace {

// The record, and the components in the order in which they are appended behind it: each
// big-endian and as wide as the curve.
enum Word : uint32_t {
    kKeyBits,
    kPrivateOffset,
    kPrivateBytes,
    kXOffset,
    kXBytes,
    kYOffset,
    kYBytes,
    kWords,
};
static_assert(kWords * kWordBytes == 28, "fixed by the protocol");

constexpr uint32_t kMostKeyBits = 521;
constexpr uint32_t kMostComponentBytes = (kMostKeyBits + 7) / 8;

struct EcKey {
    uint32_t bits = 0;
    uint32_t component_bytes = 0;
    MallocedBytes private_key;
    MallocedBytes x;
    MallocedBytes y;
    uint32_t private_key_length = 0;
    uint32_t x_length = 0;
    uint32_t y_length = 0;

    bool fits() const {
        return bits != 0 && bits <= kMostKeyBits && private_key_length <= component_bytes &&
               x_length <= component_bytes && y_length <= component_bytes;
    }
};

EcKey owned(const _keymaster_ec_import_internal_t& parts) {
    EcKey key;
    key.bits = parts.key_size;
    key.component_bytes = (parts.key_size + 7) / 8;
    key.private_key.reset(parts.priv_key);
    key.x.reset(parts.pubkey_x);
    key.y.reset(parts.pubkey_y);
    key.private_key_length = parts.priv_key_len;
    key.x_length = parts.pubkey_x_len;
    key.y_length = parts.pubkey_y_len;
    return key;
}

// Appends `bytes` with leading zeros to `width`, and writes the pair of record words at `index`.
void addComponent(LegacyExchange& exchange, LegacyRecord& record, uint32_t index, uint32_t width,
                  const MallocedBytes& bytes, uint32_t length) {
    static constexpr uint8_t kZeros[kMostComponentBytes] = {};
    record.setWord(index, exchange.indirectOffset());
    exchange.appendIndirect(kZeros, width - length);
    exchange.appendIndirect(bytes.get(), length);
    record.setWord(index + 1, width);
}

}  // namespace

keymaster_error_t addEcKey(LegacyExchange& exchange, uint32_t index, KeymasterCryptoDevice& crypto,
                           const keymaster_blob_t& pkcs8) {
    _keymaster_ec_import_internal_t parts = {};
    const keymaster_error_t error = crypto.pkcs8_to_internal(KM_ALGORITHM_EC, &pkcs8, &parts);
    const EcKey key = owned(parts);
    if (error != KM_ERROR_OK || !key.private_key || !key.x || !key.y) {
        logLegacyError("(keymaster_error_t)pkcs8_to_internal failed");
        logLegacyError("ret: %d", error);
        return error;
    }
    if (!key.fits()) return KM_ERROR_UNSUPPORTED_EC_CURVE;

    exchange.setWord(index, exchange.offset());
    LegacyRecord record = exchange.openRecord(kWords);
    const uint32_t width = key.component_bytes;
    record.setWord(kKeyBits, key.bits);
    addComponent(exchange, record, kPrivateOffset, width, key.private_key, key.private_key_length);
    addComponent(exchange, record, kXOffset, width, key.x, key.x_length);
    addComponent(exchange, record, kYOffset, width, key.y, key.y_length);
    // Kept: the second word is where the components end, not how long the record is.
    exchange.setWord(index + 1, exchange.indirectOffset());
    exchange.closeIndirect();
    return exchange.error();
}

}  // namespace keymasterdevice
