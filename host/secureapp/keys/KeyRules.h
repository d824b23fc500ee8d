// Which keys may be made, at which security level, and with which authorizations.
//
// The steps come in this order, each throwing Refusal: acceptCreation, then planGeneration
// or checkImport, then checkMacRules, then finishAuthorizations.
#pragma once

#include "secureapp/base/Environment.h"
#include "secureapp/base/Params.h"

namespace lumo::secureapp {

// What the device can do, and whether it is in early boot.
struct CreationContext {
    keymaster_security_level_t level = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
    bool early_boot = false;
    bool rollback_resistance = false;
    bool user_presence = false;
};

// The facts of a key that its material alone tells. For a key to be generated what the caller asks
// for, with what follows from them.
struct KeyFacts {
    uint32_t algorithm = 0;
    uint64_t bits = 0;
    std::optional<uint32_t> curve;     // EC
    std::optional<uint64_t> exponent;  // RSA
};

// The caller's parameters without those that do not belong in a key, each value once. Refuses
// unknown algorithms, tags that only the secure side may set, contradictions and what this device
// cannot do.
ParamSet acceptCreation(const ParamSet& params, const CreationContext& context);

// What key to generate.
KeyFacts planGeneration(const ParamSet& params, keymaster_security_level_t level);

// Compares a parsed key with the caller's parameters, then checks whether the level supports it: a
// mismatch is reported before a lack of support.
void checkImport(const ParamSet& params, const KeyFacts& facts, keymaster_security_level_t level);

// The rules on digests and MAC lengths of HMAC and AES-GCM keys.
void checkMacRules(const ParamSet& params, keymaster_security_level_t level);

// What the secure side adds to every key.
struct Additions {
    uint32_t origin = KM_ORIGIN_GENERATED;
    ParamSet versions;  // OS version and patch levels
    uint64_t now = 0;   // milliseconds since 1970, for keys without a creation date
};

// The authorizations of the finished key: no APPLICATION_ID, no APPLICATION_DATA.
ParamSet finishAuthorizations(const ParamSet& params, const KeyFacts& facts,
                              const Additions& additions);

}  // namespace lumo::secureapp
