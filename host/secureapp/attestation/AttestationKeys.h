// The keys that sign attestations, and the certificates for them: a root, and under it
// one batch key for RSA and one for EC.
#pragma once

#include "secureapp/base/Bytes.h"
#include "secureapp/base/DeviceConfig.h"
#include "secureapp/base/Environment.h"
#include "secureapp/crypto/CryptoPtr.h"

namespace lumo::secureapp {

struct AttestationKey {
    CryptoPtr<EVP_PKEY> key;
    std::vector<Bytes> chain;  // DER certificates: the batch key's, then the root's
};

// The batch key for keys of `algorithm`, RSA or EC. Made at its first use and kept in `state`; with
// DeviceConfig::test_attestation_keys the fixed one, which is the same everywhere and must not be
// trusted. StateError when the stored record is damaged.
AttestationKey attestationKey(State& state, const DeviceConfig& config,
                              keymaster_security_level_t level, uint32_t algorithm);

// The DER certificate that verifiers have to trust, the last one of both chains.
Bytes attestationRoot(State& state, const DeviceConfig& config, keymaster_security_level_t level);

}  // namespace lumo::secureapp
