// What the keymaster attests about the boot of its device, and whether the properties agree.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Client.h"

namespace lumo::cli {

struct BootState {
    bool locked = false;
    uint32_t state = 0;  // 0 verified, 1 self-signed, 2 unverified, 3 failed
    Bytes hash;          // of what was verified
};

// Makes a key, which is not kept, and reads the root of trust in its attestation. Nothing if there
// is none in it; throws Failure if the keymaster does not attest.
std::optional<BootState> attestedBootState(const sp<Device>& device);

// One line for each property of the boot that says something else; a missing one says nothing.
std::vector<std::string> bootPropertyMismatches(const BootState& boot);

std::string toString(const BootState& boot);

}  // namespace lumo::cli
