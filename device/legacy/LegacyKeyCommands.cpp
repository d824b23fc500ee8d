// The commands that answer with a status alone.

#include <KeymasterUtils.h>

#include "FbeKey.h"
#include "KeymasterHalDevice.h"
#include "LegacyExchange.h"

namespace keymasterdevice {
namespace {

namespace configure_request {
enum Word : uint32_t { kCommand, kParamsOffset, kNumParams, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace configure_request

namespace delete_request {
enum Word : uint32_t { kCommand, kBlobOffset, kBlobBytes, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace delete_request

namespace delete_all_request {
enum Word : uint32_t { kCommand, kWords };
static_assert(kWords * kWordBytes == 4, "fixed by the protocol");
}  // namespace delete_all_request

namespace destroy_ids_request {
enum Word : uint32_t { kCommand, kZero, kWords };
static_assert(kWords * kWordBytes == 8, "fixed by the protocol");
}  // namespace destroy_ids_request

}  // namespace

keymaster_error_t KeymasterHalDevice::legacy_configure(const keymaster_key_param_set_t* params) {
    LegacyExchange exchange(channel(), kConfigure, configure_request::kWords);
    exchange.addOptionalParams(configure_request::kParamsOffset, params);
    return exchange.send();
}

keymaster_error_t KeymasterHalDevice::legacy_delete_key(const keymaster_key_blob_t* key_blob) {
    if (key_blob == nullptr || key_blob->key_material == nullptr) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    if (key_blob->key_material_size == kFbeKeyBytes) {
        clearFbeKey(key_blob->key_material);
        return KM_ERROR_OK;
    }
    const keymaster_error_t error = bringUpLink(channel(), kDeleteKey);
    if (error != KM_ERROR_OK) return error;
    LegacyExchange exchange(channel(), kDeleteKey, delete_request::kWords);
    exchange.addItem(delete_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    return exchange.send();
}

keymaster_error_t KeymasterHalDevice::legacy_delete_all_keys() {
    const keymaster_error_t error = bringUpLink(channel(), kDeleteAllKeys);
    if (error != KM_ERROR_OK) return error;
    LegacyExchange exchange(channel(), kDeleteAllKeys, delete_all_request::kWords);
    return exchange.send();
}

keymaster_error_t KeymasterHalDevice::legacy_destroy_device_ids() {
    const keymaster_error_t error = bringUpLink(channel(), kDestroyDeviceIds);
    if (error != KM_ERROR_OK) return error;
    LegacyExchange exchange(channel(), kDestroyDeviceIds, destroy_ids_request::kWords);
    exchange.setWord(destroy_ids_request::kZero, 0);
    return exchange.send();
}

}  // namespace keymasterdevice
