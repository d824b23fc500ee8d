#include "LegacyEcKey.h"

#include "Log.h"
#include "Memory.h"

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

constexpr uint32_t kMaxComponentBytes = (521 + 7) / 8;  // of the widest curve

// Whether the curve has a size and no component is wider than it.
bool fits(const _keymaster_ec_import_internal_t& key, uint32_t width) {
    return key.key_size != 0 && key.priv_key_len <= width && key.pubkey_x_len <= width &&
           key.pubkey_y_len <= width;
}

// Appends `bytes` with leading zeros to `width`, and writes the pair of record words at `index`.
void addComponent(LegacyExchange& exchange, LegacyRecord& record, uint32_t index, uint32_t width,
                  const uint8_t* bytes, uint32_t length) {
    static constexpr uint8_t kZeros[kMaxComponentBytes] = {};
    record.setWord(index, exchange.indirectOffset());
    exchange.appendIndirect(kZeros, width - length);
    exchange.appendIndirect(bytes, length);
    record.setWord(index + 1, width);
}

}  // namespace

void addEcKey(LegacyExchange& exchange, uint32_t index, KeymasterCryptoDevice& crypto,
              const keymaster_blob_t& pkcs8) {
    if (!exchange.ok()) return;
    _keymaster_ec_import_internal_t key = {};
    const keymaster_error_t error = crypto.pkcs8_to_internal(KM_ALGORITHM_EC, &pkcs8, &key);
    const SecretBytes private_key(key.priv_key, WipeAndFree{key.priv_key_len});
    const MallocedBytes x(key.pubkey_x);
    const MallocedBytes y(key.pubkey_y);
    if (error != KM_ERROR_OK) {
        KM_LOG_ERROR(kDeviceLogTag, "(keymaster_error_t)pkcs8_to_internal failed");
        KM_LOG_ERROR(kDeviceLogTag, "ret: %d", error);
        exchange.storeFirstError(error);
        return;
    }
    const uint32_t width = (key.key_size + 7) / 8;
    if (!fits(key, width)) {
        exchange.storeFirstError(KM_ERROR_UNSUPPORTED_EC_CURVE);
        return;
    }
    exchange.setWord(index, exchange.offset());
    LegacyRecord record = exchange.openRecord(kWords);
    record.setWord(kKeyBits, key.key_size);
    addComponent(exchange, record, kPrivateOffset, width, key.priv_key, key.priv_key_len);
    addComponent(exchange, record, kXOffset, width, key.pubkey_x, key.pubkey_x_len);
    addComponent(exchange, record, kYOffset, width, key.pubkey_y, key.pubkey_y_len);
    // Kept: the second word is where the components end, not how long the record is.
    exchange.setWord(index + 1, exchange.indirectOffset());
    exchange.closeIndirect();
}

}  // namespace keymasterdevice
