// Key material: generation, checks on import, and the public half.
#pragma once

#include "secureapp/base/Bytes.h"
#include "secureapp/base/Environment.h"
#include "secureapp/base/Secret.h"
#include "secureapp/keys/KeyRules.h"

namespace lumo::secureapp {

// PKCS#8 of RSA and EC keys, the bytes of others.
Secret makeMaterial(const KeyFacts& facts, RandomSource& random);

// Refuses imported data that is not a key of the algorithm:
// KM_ERROR_UNSUPPORTED_KEY_FORMAT, INVALID_ARGUMENT (does not parse), INCOMPATIBLE_ALGORITHM or
// UNSUPPORTED_EC_CURVE. What passes is the material, unchanged.
void checkMaterial(uint32_t algorithm, uint32_t format, ByteView data);

// The facts of material that passed checkMaterial or came from makeMaterial.
KeyFacts materialFacts(uint32_t algorithm, ByteView material);

// The public key as its parts, for old applications that leave the encoding to the HAL.
struct PublicKeyParts {
    uint32_t algorithm = 0;
    Bytes modulus, exponent;  // RSA, big-endian, minimal
    Bytes x, y;               // EC, big-endian, minimal
};

// DER SubjectPublicKeyInfo of PKCS#8 material.
Bytes publicKeyOf(ByteView material);
PublicKeyParts publicPartsOf(uint32_t algorithm, ByteView material);

}  // namespace lumo::secureapp
