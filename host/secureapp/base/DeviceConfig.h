// The facts of the device that a secure application represents: what boot loader and factory would
// report.
#pragma once

#include <hardware/keymaster_defs.h>

#include <map>
#include <optional>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

struct DeviceConfig {
    // YYYYMMDD. The vendor's comes from the HAL at start unless it is set here.
    std::optional<uint32_t> vendor_patchlevel;
    std::optional<uint32_t> boot_patchlevel = 20201205;

    Bytes verified_boot_key = Bytes(32, 0);
    bool device_locked = false;        // the boot loader's lock
    uint32_t verified_boot_state = 2;  // 0 verified, 1 self-signed, 2 unverified, 3 failed
    Bytes verified_boot_hash = Bytes(32, 0x5A);

    std::map<keymaster_tag_t, Bytes>
        device_ids;  // by KM_TAG_ATTESTATION_ID_*; absent: not provisioned

    bool rollback_resistance = false;  // whether such keys can be made
    bool trusted_clock = false;        // whether dates of keys are enforced by wall-clock time
    bool user_presence = false;  // whether there is a button; presence is proven by pressing it
    bool test_attestation_keys = false;  // the fixed test root in place of keys of its own
};

}  // namespace lumo::secureapp
