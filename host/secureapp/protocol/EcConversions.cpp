#include "secureapp/protocol/EcConversions.h"

#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/CryptoCalls.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/crypto/Curves.h"
#include "secureapp/crypto/PrivateKey.h"

namespace lumo::secureapp {
namespace {

template <typename T>
T* require(T* object, const char* step) {
    requireCrypto(object != nullptr, step);
    return object;
}

CryptoPtr<BIGNUM> number(ByteView bytes) {
    if (bytes.size() > UINT16_MAX) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "a number of ", bytes.size(), " bytes is on no curve");
    }
    // BoringSSL and OpenSSL declare the length with different types; this one fits both.
    const uint16_t length = static_cast<uint16_t>(bytes.size());
    return CryptoPtr<BIGNUM>(require(BN_bin2bn(bytes.data(), length, nullptr), "read a number"));
}

// A null output returns the size only.
size_t encode(const ECDSA_SIG* signature, uint8_t** place) {
    const int size = i2d_ECDSA_SIG(signature, place);
    requireCrypto(size > 0, "encode an ECDSA signature");
    return static_cast<size_t>(size);
}

void putPadded(const BIGNUM* value, uint8_t* place, size_t width) {
    const int size = static_cast<int>(width);
    requireCrypto(BN_bn2binpad(value, place, size) == size, "write a number of a signature");
}

}  // namespace

size_t ecWidth(uint32_t key_bits) {
    return (key_bits + 7) / 8;
}

uint32_t ecCurveBits(uint32_t curve) {
    const Curve* known = findCurve(curve);
    if (known == nullptr) {
        refuse(KM_ERROR_UNSUPPORTED_EC_CURVE, "the key's EC_CURVE ", curve, " is unknown");
    }
    return known->bits;
}

Bytes ecPrivateKey(const EcKeyParts& parts) {
    const Curve* curve = findCurveOfBits(parts.key_bits);
    if (curve == nullptr) {
        refuse(KM_ERROR_UNSUPPORTED_KEY_SIZE, "the EC key's record says ", parts.key_bits,
               " bits, which no curve has");
    }
    const size_t width = ecWidth(parts.key_bits);
    for (const ByteView part : {parts.scalar, parts.x, parts.y}) {
        if (part.size() == width) continue;
        refuse(KM_ERROR_INVALID_ARGUMENT, "a number of the EC key's record has ", part.size(),
               " bytes in place of ", width);
    }

    const CryptoPtr<EC_KEY> key(require(EC_KEY_new_by_curve_name(curve->nid), "hold an EC key"));
    const bool good = EC_KEY_set_private_key(key.get(), number(parts.scalar).get()) == 1 &&
                      EC_KEY_set_public_key_affine_coordinates(key.get(), number(parts.x).get(),
                                                               number(parts.y).get()) == 1 &&
                      EC_KEY_check_key(key.get()) == 1;
    if (!good) {
        refuse(KM_ERROR_INVALID_ARGUMENT,
               "the numbers of the EC key's record are no key pair on its curve");
    }

    const CryptoPtr<EVP_PKEY> wrapped(require(EVP_PKEY_new(), "hold a key"));
    requireCrypto(EVP_PKEY_set1_EC_KEY(wrapped.get(), key.get()) == 1, "wrap a sent EC key");
    return encodePrivateKey(wrapped.get());
}

Bytes ecDerSignature(ByteView r, ByteView s) {
    const CryptoPtr<ECDSA_SIG> signature(require(ECDSA_SIG_new(), "hold an ECDSA signature"));
    CryptoPtr<BIGNUM> r_number = number(r);
    CryptoPtr<BIGNUM> s_number = number(s);
    requireCrypto(ECDSA_SIG_set0(signature.get(), r_number.get(), s_number.get()) == 1,
                  "set the numbers of an ECDSA signature");
    // The signature owns them from here on.
    static_cast<void>(r_number.release());
    static_cast<void>(s_number.release());

    Bytes der(encode(signature.get(), nullptr));
    uint8_t* cursor = der.data();
    encode(signature.get(), &cursor);
    return der;
}

Bytes ecRawSignature(ByteView der, size_t width) {
    const uint8_t* cursor = der.data();
    const CryptoPtr<ECDSA_SIG> signature(require(
        d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(der.size())), "read an ECDSA signature"));
    const BIGNUM* r = nullptr;
    const BIGNUM* s = nullptr;
    ECDSA_SIG_get0(signature.get(), &r, &s);
    Bytes raw(2 * width);
    putPadded(r, raw.data(), width);
    putPadded(s, raw.data() + width, width);
    return raw;
}

}  // namespace lumo::secureapp
