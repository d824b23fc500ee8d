// Key conversions for secure applications that cannot do them themselves.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>

namespace keymasterdevice {

// Big numbers in these records are unsigned, big-endian and of minimal length; lengths are bytes.

// The parts of an EC private key. The three buffers come from malloc.
struct _keymaster_ec_import_internal_t {  // NOLINT(bugprone-reserved-identifier): fixed name
    uint8_t* priv_key;
    uint32_t priv_key_len;
    uint8_t* pubkey_x;
    uint32_t pubkey_x_len;
    uint8_t* pubkey_y;
    uint32_t pubkey_y_len;
    uint32_t key_size;  // curve size in bits: 224, 256, 384 or 521; 0 for any other curve
};

// The parts of a public key as the secure application returns it. The pointers are borrowed; only
// the fields of the named algorithm are read.
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

// The two numbers of an ECDSA signature. As an output its buffers come from malloc.
struct _keymaster_ec_sig_internal_t {  // NOLINT(bugprone-reserved-identifier): fixed name
    uint8_t* r;
    uint32_t r_len;
    uint8_t* s;
    uint32_t s_len;
};

// Holds nothing and may be called by any number of threads. An output is written only on success
// and stays as it was on failure; the buffers in it come from malloc, are the caller's and are
// released with free. Unless a method says otherwise each failure is logged.
class KeymasterCryptoDevice {
  public:
    KeymasterCryptoDevice();
    virtual ~KeymasterCryptoDevice();
    KeymasterCryptoDevice(const KeymasterCryptoDevice&) = delete;
    KeymasterCryptoDevice& operator=(const KeymasterCryptoDevice&) = delete;

    // Splits an EC private key in PKCS#8 (RFC 5208, DER) into scalar and public point. Bytes behind
    // the structure are ignored. The scalar in `out->priv_key` is a secret: the caller wipes it
    // before it is freed.
    //
    //   KM_ERROR_UNEXPECTED_NULL_POINTER     `key_data`, its data or `out` is null, or it is empty;
    //                                        not logged
    //   KM_ERROR_INVALID_KEY_BLOB            does not parse, is not of `algorithm`, or is of
    //                                        KM_ALGORITHM_RSA, whose keys are not converted
    //   KM_ERROR_KEY_EXPORT_OPTIONS_INVALID  no memory for one of the three buffers
    //   KM_ERROR_MEMORY_ALLOCATION_FAILED    no memory for the point's coordinates
    [[nodiscard]] keymaster_error_t pkcs8_to_internal(keymaster_algorithm_t algorithm,
                                                      const keymaster_blob_t* key_data,
                                                      _keymaster_ec_import_internal_t* out);

    // Encodes a public key as SubjectPublicKeyInfo (RFC 5280, DER). The curve of an EC key is the
    // narrowest of those named above that has the point on it. `in` is not changed.
    //
    //   KM_ERROR_UNEXPECTED_NULL_POINTER     `in` or `out` is null; not logged
    //   KM_ERROR_UNSUPPORTED_ALGORITHM       neither KM_ALGORITHM_RSA nor KM_ALGORITHM_EC
    //   KM_ERROR_KEY_EXPORT_OPTIONS_INVALID  a part is null or empty, an RSA key cannot be made of
    //                                        the parts, or the key cannot be encoded
    //   KM_ERROR_INVALID_KEY_BLOB            the point is on none of the curves
    [[nodiscard]] keymaster_error_t internal_to_x509(_keymaster_export_internal_t* in,
                                                     keymaster_blob_t* out);

    // Splits an ECDSA-Sig-Value (RFC 3279, DER), which fills the blob to its end, into r and s.
    //
    //   KM_ERROR_UNEXPECTED_NULL_POINTER   `der_signature`, its data or `out` is null; not logged
    //   KM_ERROR_VERIFICATION_FAILED       malformed or followed by more bytes; or r or s is zero,
    //                                      which is not logged
    //   KM_ERROR_MEMORY_ALLOCATION_FAILED  not logged
    [[nodiscard]] keymaster_error_t ecsig_to_internal(const keymaster_blob_t* der_signature,
                                                      _keymaster_ec_sig_internal_t* out);

    // Encodes r and s as ECDSA-Sig-Value. Both may have leading zeros. `in` is not changed.
    //
    //   KM_ERROR_UNEXPECTED_NULL_POINTER   `in`, `out`, r or s is null, or r or s is of length 0;
    //                                      not logged
    //   KM_ERROR_MEMORY_ALLOCATION_FAILED  no memory (not logged for that of the result), or the
    //                                      signature cannot be encoded
    [[nodiscard]] keymaster_error_t internal_to_ecsig(_keymaster_ec_sig_internal_t* in,
                                                      keymaster_blob_t* out);
};

}  // namespace keymasterdevice
