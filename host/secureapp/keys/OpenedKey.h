// An opened key blob.
#pragma once

#include "secureapp/base/Params.h"
#include "secureapp/base/Secret.h"

namespace lumo::secureapp {

struct OpenedKey {
    Secret material;  // PKCS#8 of RSA and EC keys; the bytes of others
    Bytes id;         // 16 random bytes, kept through upgrades
    uint64_t version = 0;

    // All authorizations, in this order: the hardware-enforced ones and the software-enforced ones
    // that the clear part reports, then those without a field there, which are enforced but not
    // reported.
    ParamSet authorizations;
    size_t hardware_count = 0;
    size_t software_count = 0;

    ParamSet hardware() const { return authorizations.part(0, hardware_count); }
    ParamSet software() const { return authorizations.part(hardware_count, software_count); }
    ParamSet unreported() const {
        return authorizations.part(hardware_count + software_count, SIZE_MAX);
    }
    uint32_t algorithm() const {
        return static_cast<uint32_t>(authorizations.integer(KM_TAG_ALGORITHM).value_or(0));
    }
};

}  // namespace lumo::secureapp
