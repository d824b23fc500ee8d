// What may be attested.
#pragma once

#include "secureapp/base/DeviceConfig.h"
#include "secureapp/base/Environment.h"
#include "secureapp/base/Params.h"

namespace lumo::secureapp {

// Refuses keys that are neither RSA nor EC, and parameters that are missing, too long or ask for
// what this device does not have.
void checkAttestationRequest(uint32_t algorithm, const ParamSet& params,
                             keymaster_security_level_t level, uint32_t attestation_version);

// The device ids that are asked for, all of which must be the provisioned ones:
// KM_ERROR_CANNOT_ATTEST_IDS for others, and for all once the ids are destroyed.
ParamSet matchedDeviceIds(const ParamSet& params, const DeviceConfig& config, State& state);

// Permanent: from then on no device id is attested.
void destroyDeviceIds(State& state);

}  // namespace lumo::secureapp
