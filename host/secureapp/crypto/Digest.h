// Digests, and HMAC over whole messages.
#pragma once

#include <openssl/evp.h>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

constexpr size_t kSha256Bytes = 32;

Bytes sha256(ByteView data);
Bytes hmacSha256(ByteView key, ByteView data);

// In constant time for equal lengths; false for different ones.
bool equalSecret(ByteView a, ByteView b);

// The EVP digest of a keymaster digest; null for NONE and unknown ones.
const EVP_MD* evpDigest(uint32_t digest);
// Digest size in bits; 0 for NONE and unknown ones.
uint32_t digestBits(uint32_t digest);

}  // namespace lumo::secureapp
