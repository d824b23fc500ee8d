#include "secureapp/crypto/PrivateKey.h"

#include <openssl/err.h>

#include <climits>

#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/CryptoCalls.h"
#include "secureapp/crypto/Curves.h"
#include "secureapp/crypto/Der.h"

namespace lumo::secureapp {
namespace {

// Whether the private part inverts the public one. Asked explicitly, because OpenSSL checks less
// than BoringSSL while it parses.
bool rsaRoundTrips(EVP_PKEY* key) {
    constexpr uint8_t kMessage = 2;
    const int size = EVP_PKEY_size(key);
    if (size <= 0) return false;
    Bytes block(static_cast<size_t>(size - 1), 0);
    block.push_back(kMessage);
    Bytes encrypted(block.size());
    Bytes back(block.size());
    size_t encrypted_size = encrypted.size();
    size_t back_size = back.size();
    const auto encryption = rsaContext(key, EVP_PKEY_encrypt_init, RSA_NO_PADDING);
    const auto decryption = rsaContext(key, EVP_PKEY_decrypt_init, RSA_NO_PADDING);
    return EVP_PKEY_encrypt(encryption.get(), encrypted.data(), &encrypted_size, block.data(),
                            block.size()) == 1 &&
           EVP_PKEY_decrypt(decryption.get(), back.data(), &back_size, encrypted.data(),
                            encrypted_size) == 1 &&
           back_size == block.size() && back == block;
}

// The key in the one form that is exported: named curve, uncompressed point.
CryptoPtr<EVP_PKEY> ecKeyInStandardForm(EC_KEY* key) {
    EC_KEY_set_asn1_flag(key, OPENSSL_EC_NAMED_CURVE);
    EC_KEY_set_conv_form(key, POINT_CONVERSION_UNCOMPRESSED);
    CryptoPtr<EVP_PKEY> result(EVP_PKEY_new());
    requireCrypto(result != nullptr && EVP_PKEY_set1_EC_KEY(result.get(), key) == 1,
                  "wrap an EC key");
    return result;
}

bool isConsistent(EVP_PKEY* key) {
    switch (EVP_PKEY_id(key)) {
        case EVP_PKEY_RSA:
            return rsaRoundTrips(key);
        case EVP_PKEY_EC:
            return EC_KEY_check_key(EVP_PKEY_get0_EC_KEY(key)) == 1;
        default:
            return true;
    }
}

CryptoPtr<EVP_PKEY> inStandardForm(CryptoPtr<EVP_PKEY> key) {
    if (EVP_PKEY_id(key.get()) != EVP_PKEY_EC) return key;
    const CryptoPtr<EC_KEY> ec(EVP_PKEY_get1_EC_KEY(key.get()));
    requireCrypto(ec != nullptr, "give the EC part of a key");
    return ecKeyInStandardForm(ec.get());
}

// Null when it does not parse.
CryptoPtr<EVP_PKEY> decodePrivateKey(ByteView pkcs8) {
    if (pkcs8.empty() || pkcs8.size() > INT_MAX) return nullptr;
    const uint8_t* position = pkcs8.data();
    const CryptoPtr<PKCS8_PRIV_KEY_INFO> info(
        d2i_PKCS8_PRIV_KEY_INFO(nullptr, &position, static_cast<long>(pkcs8.size())));
    if (info == nullptr || position != pkcs8.end()) return nullptr;
    return CryptoPtr<EVP_PKEY>(EVP_PKCS82PKEY(info.get()));
}

// The bytes that an i2d function allocated.
Bytes copyEncoding(uint8_t* encoding, int size) {
    const CryptoPtr<uint8_t> owner(encoding);
    requireCrypto(size > 0 && encoding != nullptr, "encode a key in DER");
    return Bytes(encoding, encoding + size);
}

// Reads an EC key as encodePrivateKey writes it, without the multiplication by which libcrypto
// checks that the two halves belong together; null for any other encoding.
CryptoPtr<EVP_PKEY> openStandardEcKey(ByteView pkcs8) {
    constexpr der::Tag kPublicKeyTag = der::context(1);
    CryptoPtr<EC_KEY> key;
    try {
        der::Reader info = der::Reader(pkcs8).enter(der::kSequence);
        info.next(der::kInteger);
        der::Reader algorithm = info.enter(der::kSequence);
        algorithm.next(der::kObjectIdentifier);
        const der::Item oid = algorithm.next();
        if (oid.tag != der::kObjectIdentifier) return nullptr;
        const Curve* curve = findCurveOfOid(oid.contents);
        if (curve == nullptr) return nullptr;
        der::Reader inner =
            der::Reader(info.next(der::kOctetString).contents).enter(der::kSequence);
        inner.next(der::kInteger);
        const ByteView scalar = inner.next(der::kOctetString).contents;
        const ByteView bits = inner.enter(kPublicKeyTag).next(der::kBitString).contents;
        const ByteView point = bits.sub(1);  // after the number of unused bits
        key.reset(EC_KEY_new_by_curve_name(curve->nid));
        const CryptoPtr<BIGNUM> number(BN_bin2bn(scalar.data(), CryptoLength{scalar}, nullptr));
        requireCrypto(key != nullptr && number != nullptr, "hold a stored EC key");
        const EC_GROUP* group = EC_KEY_get0_group(key.get());
        const CryptoPtr<EC_POINT> place(EC_POINT_new(group));
        if (place == nullptr || EC_KEY_set_private_key(key.get(), number.get()) != 1 ||
            EC_POINT_oct2point(group, place.get(), point.data(), point.size(), nullptr) != 1 ||
            EC_KEY_set_public_key(key.get(), place.get()) != 1) {
            ERR_clear_error();
            return nullptr;
        }
    } catch (const Refusal&) {
        return nullptr;
    }
    return ecKeyInStandardForm(key.get());
}

}  // namespace

CryptoPtr<EVP_PKEY> parsePrivateKey(ByteView pkcs8) {
    CryptoPtr<EVP_PKEY> key = decodePrivateKey(pkcs8);
    if (key != nullptr && isConsistent(key.get())) return inStandardForm(std::move(key));
    ERR_clear_error();
    return nullptr;
}

CryptoPtr<EVP_PKEY> openPrivateKey(ByteView pkcs8) {
    if (CryptoPtr<EVP_PKEY> ec = openStandardEcKey(pkcs8)) return ec;
    CryptoPtr<EVP_PKEY> key = decodePrivateKey(pkcs8);
    requireCrypto(key != nullptr, "read a stored key");
    return inStandardForm(std::move(key));
}

Bytes encodePrivateKey(EVP_PKEY* key) {
    const CryptoPtr<PKCS8_PRIV_KEY_INFO> info(EVP_PKEY2PKCS8(key));
    requireCrypto(info != nullptr, "bring a key into PKCS#8");
    uint8_t* encoding = nullptr;
    const int size = i2d_PKCS8_PRIV_KEY_INFO(info.get(), &encoding);
    return copyEncoding(encoding, size);
}

Bytes encodePublicKey(EVP_PKEY* key) {
    uint8_t* encoding = nullptr;
    const int size = i2d_PUBKEY(key, &encoding);
    return copyEncoding(encoding, size);
}

CryptoPtr<EVP_PKEY> makeRsaKey(uint32_t bits, uint64_t exponent) {
    // As bytes, because a word of libcrypto may have 32 bits.
    Bytes exponent_bytes;
    appendBig(exponent_bytes, exponent, sizeof(exponent));
    const CryptoPtr<RSA> rsa(RSA_new());
    const CryptoPtr<BIGNUM> e(
        BN_bin2bn(exponent_bytes.data(), CryptoLength{exponent_bytes}, nullptr));
    requireCrypto(bits <= INT_MAX && rsa != nullptr && e != nullptr, "hold a new RSA key");
    requireCrypto(RSA_generate_key_ex(rsa.get(), static_cast<int>(bits), e.get(), nullptr) == 1,
                  "generate an RSA key");
    CryptoPtr<EVP_PKEY> key(EVP_PKEY_new());
    requireCrypto(key != nullptr && EVP_PKEY_set1_RSA(key.get(), rsa.get()) == 1,
                  "wrap an RSA key");
    return key;
}

CryptoPtr<EVP_PKEY> makeEcKey(uint32_t curve) {
    const Curve* known = findCurve(curve);
    if (known == nullptr)
        refuse(KM_ERROR_UNSUPPORTED_EC_CURVE, "no EC key is made on curve ", curve);
    const CryptoPtr<EC_KEY> key(EC_KEY_new_by_curve_name(known->nid));
    requireCrypto(key != nullptr && EC_KEY_generate_key(key.get()) == 1, "generate an EC key");
    return ecKeyInStandardForm(key.get());
}

}  // namespace lumo::secureapp
