#include "KeymasterCryptoDevice.h"

#include <openssl/err.h>

#include <climits>

#include "CryptoPtr.h"
#include "EnumBits.h"
#include "Log.h"
#include "Memory.h"
#include "Presence.h"

// A macro, so that the compiler checks the format.
#define FAIL_WITH(code, ...) (KM_LOG_ERROR(kCryptoLogTag, __VA_ARGS__), (code))

namespace keymasterdevice {
namespace {

// The curves that the secure application knows, narrowest first.
struct Curve {
    int nid;
    uint32_t bits;
};
constexpr Curve kCurves[] = {
    {NID_secp224r1, 224},
    {NID_X9_62_prime256v1, 256},
    {NID_secp384r1, 384},
    {NID_secp521r1, 521},
};

// Curve size in bits; 0 for a curve that the secure application does not know.
uint32_t curveBits(const EC_GROUP* group) {
    const int nid = EC_GROUP_get_curve_name(group);
    for (const Curve& curve : kCurves) {
        if (curve.nid == nid) return curve.bits;
    }
    return 0;
}

uint32_t byteCount(const BIGNUM* number) {
    return static_cast<uint32_t>(BN_num_bytes(number));
}

// An unsigned big-endian string of minimal length, in a block from malloc; null when out of memory.
MallocedBytes toBytes(const BIGNUM* number) {
    MallocedBytes block = mallocBytes(byteCount(number));
    if (block) BN_bn2bin(number, block.get());
    return block;
}

// The same for a private number, wiped unless it is handed out.
SecretBytes toSecretBytes(const BIGNUM* number) {
    return SecretBytes(toBytes(number).release(), {byteCount(number)});
}

// Loads big-endian bytes into `number`. The libraries disagree on the type of the length.
template <typename Length>
bool loadWith(BIGNUM* (*convert)(const uint8_t*, Length, BIGNUM*), const uint8_t* data,
              uint32_t length, BIGNUM* number) {
    if (number == nullptr || length > INT_MAX) return false;
    return convert(data, static_cast<Length>(length), number) != nullptr;
}

bool load(const uint8_t* data, uint32_t length, BIGNUM* number) {
    return loadWith(BN_bin2bn, data, length, number);
}

CryptoPtr<BIGNUM> numberFrom(const uint8_t* data, uint32_t length) {
    CryptoPtr<BIGNUM> number(BN_new());
    if (!load(data, length, number.get())) number.reset();
    return number;
}

int expectedKeyType(uint32_t algorithm) {
    if (algorithm == KM_ALGORITHM_EC) return EVP_PKEY_EC;
    if (algorithm == KM_ALGORITHM_RSA) return EVP_PKEY_RSA;
    return -1;  // matches no key
}

// Null when the bytes are not a PKCS#8 key of `algorithm`. Bytes behind the structure are ignored.
CryptoPtr<EVP_PKEY> parsePkcs8(uint32_t algorithm, const keymaster_blob_t& key_data) {
    if (key_data.data_length > LONG_MAX) return nullptr;
    const uint8_t* cursor = key_data.data;
    CryptoPtr<PKCS8_PRIV_KEY_INFO> info(
        d2i_PKCS8_PRIV_KEY_INFO(nullptr, &cursor, static_cast<long>(key_data.data_length)));
    if (!info) return nullptr;
    CryptoPtr<EVP_PKEY> key(EVP_PKCS82PKEY(info.get()));
    if (!key) return nullptr;

    const int actual = EVP_PKEY_type(EVP_PKEY_id(key.get()));
    const int expected = expectedKeyType(algorithm);
    if (actual != expected) {
        KM_LOG_ERROR(kCryptoLogTag, "EVP key algorithm was %d, not the expected %d", actual,
                     expected);
        return nullptr;
    }
    return key;
}

// Kept: the line names the public key whatever the memory was for.
keymaster_error_t noMemoryForKey() {
    return FAIL_WITH(KM_ERROR_KEY_EXPORT_OPTIONS_INVALID,
                     "Could not allocate memory for public key data");
}

// The DER SubjectPublicKeyInfo of `key`, into the caller's blob on success only.
keymaster_error_t encodePublicKey(EVP_PKEY* key, keymaster_blob_t* out) {
    const int length = i2d_PUBKEY(key, nullptr);
    if (length < 1) {
        return FAIL_WITH(KM_ERROR_KEY_EXPORT_OPTIONS_INVALID, "Len returned is < 0 len = %d",
                         length);
    }
    MallocedBytes block = mallocBytes(static_cast<size_t>(length));
    if (!block) return noMemoryForKey();
    uint8_t* cursor = block.get();
    if (i2d_PUBKEY(key, &cursor) != length) {
        return FAIL_WITH(KM_ERROR_KEY_EXPORT_OPTIONS_INVALID, "Len 2 returned is < 0 len = %d",
                         length);
    }
    *out = {block.release(), static_cast<size_t>(length)};
    return KM_ERROR_OK;
}

// The narrowest known curve that is wide enough for both coordinates and has the point on it; null
// where there is none. The record has no field for the curve, so it follows from the coordinates.
CryptoPtr<EC_GROUP> curveOfPoint(const BIGNUM* x, const BIGNUM* y) {
    ERR_set_mark();
    CryptoPtr<EC_GROUP> found;
    for (const Curve& curve : kCurves) {
        const uint32_t width = (curve.bits + 7) / 8;
        if (byteCount(x) > width || byteCount(y) > width) continue;
        CryptoPtr<EC_GROUP> group(EC_GROUP_new_by_curve_name(curve.nid));
        if (!group) continue;
        CryptoPtr<EC_POINT> point(EC_POINT_new(group.get()));
        if (point && EC_POINT_set_affine_coordinates_GFp(group.get(), point.get(), x, y, nullptr)) {
            found = std::move(group);
            break;
        }
    }
    // Each curve that did not match has left errors in libcrypto's queue.
    ERR_pop_to_mark();
    return found;
}

keymaster_error_t ecToX509(const _keymaster_export_internal_t& in, BIGNUM* x, BIGNUM* y,
                           keymaster_blob_t* out) {
    if (in.pubkey_x == nullptr || in.pubkey_x_len == 0) {
        return FAIL_WITH(KM_ERROR_KEY_EXPORT_OPTIONS_INVALID,
                         "Key blob appears to have incorrect pubkey_x length");
    }
    if (in.pubkey_y == nullptr || in.pubkey_y_len == 0) {
        return FAIL_WITH(KM_ERROR_KEY_EXPORT_OPTIONS_INVALID,
                         "Key blob appears to have incorrect pubkey_y length");
    }
    CryptoPtr<EC_KEY> ec_key(EC_KEY_new());
    if (!ec_key) return FAIL_WITH(KM_ERROR_INVALID_KEY_BLOB, "pEcKey get failed");

    CryptoPtr<EC_GROUP> group;
    if (load(in.pubkey_x, in.pubkey_x_len, x) && load(in.pubkey_y, in.pubkey_y_len, y)) {
        group = curveOfPoint(x, y);
    }
    if (!group) return FAIL_WITH(KM_ERROR_INVALID_KEY_BLOB, "group get failed");
    if (EC_KEY_set_group(ec_key.get(), group.get()) != 1) {
        return FAIL_WITH(KM_ERROR_INVALID_KEY_BLOB, "EC_KEY_set_group failed");
    }
    if (EC_KEY_set_public_key_affine_coordinates(ec_key.get(), x, y) != 1) {
        return FAIL_WITH(KM_ERROR_INVALID_KEY_BLOB,
                         "EC_KEY_set_public_key_affine_coordinates get failed");
    }
    CryptoPtr<EVP_PKEY> key(EVP_PKEY_new());
    if (!key || EVP_PKEY_set1_EC_KEY(key.get(), ec_key.get()) != 1) {
        return FAIL_WITH(KM_ERROR_INVALID_KEY_BLOB, "EVP_PKEY_set1_EC_KEY failed");
    }
    return encodePublicKey(key.get(), out);
}

keymaster_error_t rsaToX509(const _keymaster_export_internal_t& in, keymaster_blob_t* out) {
    constexpr keymaster_error_t kFailed = KM_ERROR_KEY_EXPORT_OPTIONS_INVALID;
    if (in.exponent == nullptr || in.exponent_len == 0) {
        return FAIL_WITH(kFailed, "Key blob appears to have incorrect exponent");
    }
    if (in.modulus == nullptr || in.modulus_len == 0) {
        return FAIL_WITH(kFailed, "Key blob appears to have incorrect modulus");
    }
    CryptoPtr<RSA> rsa(RSA_new());
    if (!rsa) return FAIL_WITH(kFailed, "Could not allocate RSA structure");
    CryptoPtr<BIGNUM> modulus = numberFrom(in.modulus, in.modulus_len);
    if (!modulus) return FAIL_WITH(kFailed, "Failed to initialize  modulus");
    CryptoPtr<BIGNUM> exponent = numberFrom(in.exponent, in.exponent_len);
    if (!exponent) return FAIL_WITH(kFailed, "Failed to initialize public exponent");
    if (RSA_set0_key(rsa.get(), modulus.get(), exponent.get(), nullptr) != 1) {
        return FAIL_WITH(kFailed, "Failed to initialize  modulus");
    }
    // The RSA object owns both numbers now; they are not leaked.
    static_cast<void>(modulus.release());   // NOLINT(bugprone-unused-return-value)
    static_cast<void>(exponent.release());  // NOLINT(bugprone-unused-return-value)

    CryptoPtr<EVP_PKEY> key(EVP_PKEY_new());
    if (!key) return FAIL_WITH(kFailed, "Could not allocate EVP_PKEY structure");
    if (EVP_PKEY_assign_RSA(key.get(), rsa.get()) != 1) {
        return FAIL_WITH(kFailed, "Failed to assign rsa  parameters \n");
    }
    static_cast<void>(rsa.release());  // NOLINT(bugprone-unused-return-value): the key owns it
    return encodePublicKey(key.get(), out);
}

}  // namespace

KeymasterCryptoDevice::KeymasterCryptoDevice() = default;
KeymasterCryptoDevice::~KeymasterCryptoDevice() = default;

keymaster_error_t KeymasterCryptoDevice::pkcs8_to_internal(keymaster_algorithm_t algorithm,
                                                           const keymaster_blob_t* key_data,
                                                           _keymaster_ec_import_internal_t* out) {
    CryptoPtr<BIGNUM> x(BN_new());
    CryptoPtr<BIGNUM> y(BN_new());
    if (!isPresent(key_data) || out == nullptr) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    const uint32_t algorithm_bits = enumToBits(algorithm);
    CryptoPtr<EVP_PKEY> key = parsePkcs8(algorithm_bits, *key_data);
    if (!key) {
        KM_LOG_ERROR(kCryptoLogTag, "convert_pkcs8_blob_to_evp failed with ret:%d",
                     static_cast<int>(KM_ERROR_INVALID_KEY_BLOB));
        KM_LOG_ERROR(kCryptoLogTag, "import_alg:%u", algorithm_bits);
        KM_LOG_ERROR(kCryptoLogTag, "key_data->data_length:%zu", key_data->data_length);
        return KM_ERROR_INVALID_KEY_BLOB;
    }
    // Kept: an RSA key that matches its algorithm passes the check above and ends here.
    CryptoPtr<EC_KEY> ec_key(EVP_PKEY_get1_EC_KEY(key.get()));
    if (!ec_key) return FAIL_WITH(KM_ERROR_INVALID_KEY_BLOB, "pEcKey get failed");

    const BIGNUM* scalar = EC_KEY_get0_private_key(ec_key.get());
    if (scalar == nullptr) return FAIL_WITH(KM_ERROR_INVALID_KEY_BLOB, "pEcPrivKey get failed");
    SecretBytes priv_key = toSecretBytes(scalar);
    if (!priv_key) return noMemoryForKey();

    const EC_POINT* point = EC_KEY_get0_public_key(ec_key.get());
    if (point == nullptr) return FAIL_WITH(KM_ERROR_INVALID_KEY_BLOB, "pEcPubKey get failed");
    CryptoPtr<EC_GROUP> group(EC_GROUP_dup(EC_KEY_get0_group(ec_key.get())));
    if (!group) return FAIL_WITH(KM_ERROR_INVALID_KEY_BLOB, "group get failed");
    if (!x || !y) return FAIL_WITH(KM_ERROR_MEMORY_ALLOCATION_FAILED, "x_bn or y_bn get failed");
    if (EC_POINT_get_affine_coordinates_GFp(group.get(), point, x.get(), y.get(), nullptr) != 1) {
        return FAIL_WITH(KM_ERROR_INVALID_KEY_BLOB, "EC_POINT_get_affine_coordinates_GFp failed");
    }
    MallocedBytes pubkey_x = toBytes(x.get());
    if (!pubkey_x) return noMemoryForKey();
    MallocedBytes pubkey_y = toBytes(y.get());
    if (!pubkey_y) return noMemoryForKey();

    out->priv_key = priv_key.release();
    out->priv_key_len = byteCount(scalar);
    out->pubkey_x = pubkey_x.release();
    out->pubkey_x_len = byteCount(x.get());
    out->pubkey_y = pubkey_y.release();
    out->pubkey_y_len = byteCount(y.get());
    out->key_size = curveBits(group.get());
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterCryptoDevice::internal_to_x509(_keymaster_export_internal_t* in,
                                                          keymaster_blob_t* out) {
    CryptoPtr<BIGNUM> x(BN_new());
    CryptoPtr<BIGNUM> y(BN_new());
    if (in == nullptr || out == nullptr) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (in->algorithm == KM_ALGORITHM_EC) return ecToX509(*in, x.get(), y.get(), out);
    if (in->algorithm == KM_ALGORITHM_RSA) return rsaToX509(*in, out);
    return FAIL_WITH(KM_ERROR_UNSUPPORTED_ALGORITHM, "Unsupported Alg: %u", in->algorithm);
}

keymaster_error_t KeymasterCryptoDevice::ecsig_to_internal(const keymaster_blob_t* der_signature,
                                                           _keymaster_ec_sig_internal_t* out) {
    if (der_signature == nullptr || der_signature->data == nullptr || out == nullptr) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    const uint8_t* cursor = der_signature->data;
    const size_t length = der_signature->data_length;
    CryptoPtr<ECDSA_SIG> signature;
    if (length <= LONG_MAX) {
        signature.reset(d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(length)));
    }
    if (!signature || cursor != der_signature->data + length) {
        return FAIL_WITH(KM_ERROR_VERIFICATION_FAILED, "ecdsa_sig NULL or validation failed");
    }
    const BIGNUM* r = nullptr;
    const BIGNUM* s = nullptr;
    ECDSA_SIG_get0(signature.get(), &r, &s);
    if (byteCount(r) == 0) return KM_ERROR_VERIFICATION_FAILED;
    MallocedBytes r_bytes = toBytes(r);
    if (!r_bytes) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    if (byteCount(s) == 0) return KM_ERROR_VERIFICATION_FAILED;
    MallocedBytes s_bytes = toBytes(s);
    if (!s_bytes) return KM_ERROR_MEMORY_ALLOCATION_FAILED;

    *out = {r_bytes.release(), byteCount(r), s_bytes.release(), byteCount(s)};
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterCryptoDevice::internal_to_ecsig(_keymaster_ec_sig_internal_t* in,
                                                           keymaster_blob_t* out) {
    if (out == nullptr || in == nullptr || in->r == nullptr || in->r_len == 0 || in->s == nullptr ||
        in->s_len == 0) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    CryptoPtr<ECDSA_SIG> signature(ECDSA_SIG_new());
    if (!signature) return FAIL_WITH(KM_ERROR_MEMORY_ALLOCATION_FAILED, "ECDSA_SIG_new failed");
    CryptoPtr<BIGNUM> r = numberFrom(in->r, in->r_len);
    CryptoPtr<BIGNUM> s = numberFrom(in->s, in->s_len);
    // Fails only where one of the numbers could not be made.
    if (ECDSA_SIG_set0(signature.get(), r.get(), s.get()) != 1) {
        return FAIL_WITH(KM_ERROR_MEMORY_ALLOCATION_FAILED, "i2d_ECDSA_SIG failed");
    }
    // The signature owns both numbers now.
    static_cast<void>(r.release());  // NOLINT(bugprone-unused-return-value)
    static_cast<void>(s.release());  // NOLINT(bugprone-unused-return-value)

    const int size = i2d_ECDSA_SIG(signature.get(), nullptr);
    if (size <= 0) return FAIL_WITH(KM_ERROR_MEMORY_ALLOCATION_FAILED, "i2d_ECDSA_SIG failed");
    MallocedBytes block = mallocBytes(static_cast<size_t>(size));
    if (!block) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    uint8_t* cursor = block.get();
    const int written = i2d_ECDSA_SIG(signature.get(), &cursor);
    if (written <= 0 || cursor != block.get() + written) {
        return FAIL_WITH(KM_ERROR_MEMORY_ALLOCATION_FAILED, "i2d_ECDSA_SIG failed");
    }
    *out = {block.release(), static_cast<size_t>(written)};
    return KM_ERROR_OK;
}

}  // namespace keymasterdevice
