// The cryptographic primitives that the secure application builds on, over libcrypto.
//
// Failures of libcrypto itself (out of memory) throw Refusal(KM_ERROR_UNKNOWN_ERROR).
#pragma once

#include <openssl/evp.h>

#include <memory>

#include "secureapp/base/Types.h"

namespace lumo::secureapp {

// Owners of libcrypto objects.
struct CryptoDelete {
    void operator()(EVP_PKEY* key) const;
    void operator()(EVP_PKEY_CTX* context) const;
    void operator()(EVP_MD_CTX* context) const;
    void operator()(EVP_CIPHER_CTX* context) const;
};
template <typename T>
using CryptoPtr = std::unique_ptr<T, CryptoDelete>;

constexpr size_t kSha256Bytes = 32;

Bytes sha256(ByteView data);
Bytes hmacSha256(ByteView key, ByteView data);
// AES-CMAC (RFC 4493) with a 16- or 32-byte key.
Bytes aesCmac(ByteView key, ByteView data);

// AES-256-GCM with a 12-byte nonce; the 16-byte tag follows the ciphertext.
Bytes aesGcmSeal(ByteView key, ByteView nonce, ByteView aad, ByteView plaintext);
// Nothing when the tag does not fit.
std::optional<Bytes> aesGcmOpen(ByteView key, ByteView nonce, ByteView aad, ByteView sealed);

// In constant time for equal lengths; false for different ones.
bool equalSecret(ByteView a, ByteView b);

// The EVP digest of a keymaster digest; null for NONE and unknown ones.
const EVP_MD* evpDigest(uint32_t digest);
// Digest size in bits; 0 for NONE and unknown ones.
uint32_t digestBits(uint32_t digest);

// Unencrypted PKCS#8 (RFC 5208) to a key and back; null when it does not parse or is inconsistent.
// Trailing bytes are refused.
CryptoPtr<EVP_PKEY> parsePrivateKey(ByteView pkcs8);
// The same for material that was checked when it came and has been sealed since: saves the private
// operation that the check takes. KM_ERROR_UNKNOWN_ERROR when it does not parse after all.
CryptoPtr<EVP_PKEY> openPrivateKey(ByteView pkcs8);
Bytes encodePrivateKey(EVP_PKEY* key);
// DER SubjectPublicKeyInfo.
Bytes encodePublicKey(EVP_PKEY* key);

// New keys. `curve` is a keymaster_ec_curve_t.
CryptoPtr<EVP_PKEY> makeRsaKey(uint32_t bits, uint64_t exponent);
CryptoPtr<EVP_PKEY> makeEcKey(uint32_t curve);

// RSA-OAEP with the given digest, MGF1 with SHA-1 and an empty label; nothing when it does not
// open.
std::optional<Bytes> rsaOaepDecrypt(EVP_PKEY* key, uint32_t digest, ByteView ciphertext);

}  // namespace lumo::secureapp
