// Public-key conversions for secure applications that cannot do them themselves.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>

namespace keymasterdevice {

// Big numbers in these records are unsigned, big-endian and of minimal length; lengths are bytes.

// An EC private key taken apart. The three buffers come from malloc and belong to the caller.
struct _keymaster_ec_import_internal_t {  // NOLINT(bugprone-reserved-identifier): fixed name
    uint8_t* priv_key;
    uint32_t priv_key_len;
    uint8_t* pubkey_x;
    uint32_t pubkey_x_len;
    uint8_t* pubkey_y;
    uint32_t pubkey_y_len;
    uint32_t key_size;  // curve size in bits: 224, 256, 384 or 521; 0 for any other curve
};

// A public key as the secure application returns it. The pointers borrow the response's memory;
// only the fields of the named algorithm are read.
struct _keymaster_export_internal_t {  // NOLINT(bugprone-reserved-identifier): fixed name
    uint32_t algorithm;                // keymaster_algorithm_t: RSA or EC
    const uint8_t* modulus;
    uint32_t modulus_len;
    const uint8_t* exponent;
    uint32_t exponent_len;
    const uint8_t* pubkey_x;
    uint32_t pubkey_x_len;
    const uint8_t* pubkey_y;
    uint32_t pubkey_y_len;
};

// An ECDSA signature taken apart. As an output its buffers come from malloc.
struct _keymaster_ec_sig_internal_t {  // NOLINT(bugprone-reserved-identifier): fixed name
    uint8_t* r;
    uint32_t r_len;
    uint8_t* s;
    uint32_t s_len;
};

// Stateless and reentrant. Outputs are written only on success and stay as they were on failure.
class KeymasterCryptoDevice {
  public:
    KeymasterCryptoDevice();
    virtual ~KeymasterCryptoDevice();
    KeymasterCryptoDevice(const KeymasterCryptoDevice&) = delete;
    KeymasterCryptoDevice& operator=(const KeymasterCryptoDevice&) = delete;

    // PKCS#8 (RFC 5208) EC private key to its parts.
    // KM_ERROR_UNEXPECTED_NULL_POINTER, KM_ERROR_INVALID_KEY_BLOB (does not parse, is not an EC key
    // or not of `algorithm`), KM_ERROR_KEY_EXPORT_OPTIONS_INVALID or
    // KM_ERROR_MEMORY_ALLOCATION_FAILED (out of memory).
    keymaster_error_t pkcs8_to_internal(keymaster_algorithm_t algorithm,
                                        const keymaster_blob_t* key_data,
                                        _keymaster_ec_import_internal_t* out);

    // Public key parts to a DER SubjectPublicKeyInfo (RFC 5280) in a block from malloc.
    // KM_ERROR_UNEXPECTED_NULL_POINTER, KM_ERROR_UNSUPPORTED_ALGORITHM,
    // KM_ERROR_KEY_EXPORT_OPTIONS_INVALID (a part missing, or it did not encode),
    // KM_ERROR_INVALID_KEY_BLOB (not a point of any supported curve).
    keymaster_error_t internal_to_x509(_keymaster_export_internal_t* in, keymaster_blob_t* out);

    // DER ECDSA-Sig-Value (RFC 3279) to r and s; trailing bytes are refused.
    // KM_ERROR_UNEXPECTED_NULL_POINTER, KM_ERROR_VERIFICATION_FAILED (malformed),
    // KM_ERROR_MEMORY_ALLOCATION_FAILED.
    keymaster_error_t ecsig_to_internal(const keymaster_blob_t* der_signature,
                                        _keymaster_ec_sig_internal_t* out);

    // r and s to a DER ECDSA-Sig-Value in a block from malloc.
    // KM_ERROR_UNEXPECTED_NULL_POINTER, KM_ERROR_MEMORY_ALLOCATION_FAILED (it did not encode).
    keymaster_error_t internal_to_ecsig(_keymaster_ec_sig_internal_t* in, keymaster_blob_t* out);
};

}  // namespace keymasterdevice
