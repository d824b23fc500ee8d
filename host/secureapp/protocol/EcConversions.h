// EC keys and signatures as old clients send and expect them: bare numbers instead of DER.
#pragma once

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

// The parts of a private key, big-endian and all of the curve's width.
struct EcKeyParts {
    uint32_t key_bits = 0;
    ByteView scalar, x, y;
};

// Bytes of a coordinate or signature number: the key size rounded up.
size_t ecWidth(uint32_t key_bits);

// The key size of a curve; KM_ERROR_UNSUPPORTED_EC_CURVE for an unknown one.
uint32_t ecCurveBits(uint32_t curve);

// Unencrypted PKCS#8. KM_ERROR_INVALID_ARGUMENT for parts of another width or numbers that are no
// key on the curve, KM_ERROR_UNSUPPORTED_KEY_SIZE for an unknown size.
Bytes ecPrivateKey(const EcKeyParts& parts);

// DER signature of r and s, big-endian numbers of any width.
Bytes ecDerSignature(ByteView r, ByteView s);
// r and s of a DER signature, each padded to `width` bytes.
Bytes ecRawSignature(ByteView der, size_t width);

}  // namespace lumo::secureapp
