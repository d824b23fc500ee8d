// The keys that sign attestations, and the certificates for them: a root, and under it one batch
// key for RSA, one for EC, and one key that is the device's own.
#pragma once

#include "secureapp/base/Bytes.h"
#include "secureapp/base/DeviceConfig.h"
#include "secureapp/base/Environment.h"
#include "secureapp/crypto/CryptoPtr.h"

namespace lumo::secureapp {

struct AttestationKey {
    CryptoPtr<EVP_PKEY> key;
    std::vector<Bytes> chain;  // DER certificates: the key's own, then for a batch key the root's
};

// The batch key for keys of `algorithm`, RSA or EC. Made at its first use and kept in `state`; with
// DeviceConfig::test_attestation_keys the fixed one, which is the same everywhere and must not be
// trusted. StateError when the stored record is damaged.
AttestationKey attestationKey(State& state, const DeviceConfig& config,
                              keymaster_security_level_t level, uint32_t algorithm);

// The key that no other device has, for keys of either algorithm, with its own certificate alone:
// the root that issued that is left to the verifier. Made at its first use and kept in `state`,
// with DeviceConfig::test_attestation_keys too, but then under the fixed root. StateError as above.
AttestationKey deviceAttestationKey(State& state, const DeviceConfig& config,
                                    keymaster_security_level_t level);

// The DER certificate that verifiers have to trust: the last one of the batch keys' chains, and the
// issuer of the device key's.
Bytes attestationRoot(State& state, const DeviceConfig& config, keymaster_security_level_t level);

}  // namespace lumo::secureapp
