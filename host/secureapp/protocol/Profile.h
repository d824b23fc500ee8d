// Which secure application is simulated.
#pragma once

#include <string>
#include <vector>

#include "secureapp/keys/KeymasterOptions.h"

namespace lumo::secureapp {

struct Profile {
    std::string name;
    bool legacy = false;
    uint32_t keymaster_version = 4;
    uint32_t ta_minor_version = 0;
    uint32_t hal_minor_version = 0;
    uint64_t blob_version = kBlobVersion4_1;
    bool date_support = true;         // false: the probe returns KM_ERROR_INVALID_TAG
    bool converts_ec_keys = true;     // false: takes EC private keys as records
    bool encodes_public_keys = true;  // false: gives public keys as their parts
};

// cbor, legacy-4, legacy-3, legacy-3-encoding; null for another name.
const Profile* findProfile(const std::string& name);
const std::vector<std::string>& profileNames();

}  // namespace lumo::secureapp
