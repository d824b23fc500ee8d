// The state of the device over CBOR: patch levels, the end of early boot, the lock.

#include "CborCommands.h"
#include "CborExchange.h"

namespace keymasterdevice::cbor {

keymaster_error_t configure(const Channel& channel, const keymaster_key_param_set_t* params) {
    CborExchange exchange(channel, kConfigure);
    exchange.encode(&KeymasterSerialize::serializeClientParams, params);
    exchange.send();
    return exchange.error();
}

keymaster_error_t set_early_boot_ended(const Channel& channel) {
    CborExchange exchange(channel, kSetEarlyBootEnded);
    exchange.encodeNothing();
    exchange.send();
    return exchange.error();
}

keymaster_error_t set_device_locked(const Channel& channel, bool password_only) {
    CborExchange exchange(channel, kSetDeviceLocked);
    exchange.encode(&KeymasterSerialize::serializeClientSetDeviceLocked, password_only);
    exchange.send();
    return exchange.error();
}

}  // namespace keymasterdevice::cbor
