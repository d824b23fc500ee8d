// RSA and EC keys: made, parsed and encoded.
#pragma once

#include "secureapp/base/Bytes.h"
#include "secureapp/crypto/CryptoPtr.h"

namespace lumo::secureapp {

// Unencrypted PKCS#8 (RFC 5208) to a key and back; null when it does not parse or is inconsistent.
// Trailing bytes are refused.
CryptoPtr<EVP_PKEY> parsePrivateKey(ByteView pkcs8);
// The same for material that was checked before it was sealed: saves the private operation of the
// check. KM_ERROR_UNKNOWN_ERROR when it does not parse.
CryptoPtr<EVP_PKEY> openPrivateKey(ByteView pkcs8);
Bytes encodePrivateKey(EVP_PKEY* key);
// DER SubjectPublicKeyInfo.
Bytes encodePublicKey(EVP_PKEY* key);

// New keys. `curve` is a keymaster_ec_curve_t.
CryptoPtr<EVP_PKEY> makeRsaKey(uint32_t bits, uint64_t exponent);
CryptoPtr<EVP_PKEY> makeEcKey(uint32_t curve);

}  // namespace lumo::secureapp
