#include "KeymasterHalDevice.h"

#include <KeymasterUtils.h>

#include "BadAlloc.h"
#include "Channel.h"
#include "KeymasterCryptoDevice.h"

namespace keymasterdevice {

KeymasterHalDevice::KeymasterHalDevice(keymaster_security_level_t level)
    : crypto_device_(std::make_unique<KeymasterCryptoDevice>()),
      transport_(std::make_unique<keymasterutils::KeymasterUtils>(level)),
      security_level_(level) {}

KeymasterHalDevice::~KeymasterHalDevice() = default;

Channel KeymasterHalDevice::channel() const {
    return {*transport_, isStrongBox()};
}

uint32_t KeymasterHalDevice::get_keymaster_version() {
    return transport_->getKeymasterVersion();
}

keymaster_error_t KeymasterHalDevice::get_date_support(bool* supported) {
    return catchBadAlloc([&] { return legacy_get_date_support(supported); });
}

keymaster_error_t KeymasterHalDevice::verifyAuthorization(uint64_t challenge,
                                                          verification_token_t* token) {
    return catchBadAlloc([&] { return LegacyVerifyAuthorization(challenge, token); });
}

keymaster_error_t KeymasterHalDevice::SetRot(uint8_t* root_of_trust, uint8_t* unused, bool locked,
                                             uint8_t* boot_state, _km_boot_state_color_t color,
                                             uint32_t system_version, uint32_t system_patchlevel) {
    return catchBadAlloc([&] {
        return LegacySetRot(root_of_trust, unused, locked, boot_state, color, system_version,
                            system_patchlevel);
    });
}

}  // namespace keymasterdevice
