#include "secureapp/keys/KeyMaterial.h"

#include <algorithm>
#include <optional>

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/crypto/Curves.h"
#include "secureapp/crypto/PrivateKey.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kTripleDesBytes = 24;
constexpr unsigned kTripleDesKeyBitsPerByte = 7;  // the eighth is parity

bool isAsymmetric(uint32_t algorithm) {
    return algorithm == KM_ALGORITHM_RSA || algorithm == KM_ALGORITHM_EC;
}

int keyType(uint32_t algorithm) {
    return algorithm == KM_ALGORITHM_RSA ? EVP_PKEY_RSA : EVP_PKEY_EC;
}

Bytes numberBytes(const BIGNUM* number) {
    Bytes bytes(static_cast<size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, bytes.data());
    return bytes;
}

// The content of the DER element `tag` at the start of `data`, which is advanced past it. Lengths
// of up to two octets suffice here.
std::optional<ByteView> readElement(ByteView& data, uint8_t tag) {
    if (data.size() < 2 || data[0] != tag) return std::nullopt;
    const size_t octets = data[1] < 0x80 ? 0 : data[1] - 0x80U;
    if (octets > 2 || data.size() - 2 < octets) return std::nullopt;
    size_t length = octets == 0 ? data[1] : 0;
    for (size_t i = 0; i < octets; ++i) length = length << 8 | data[2 + i];
    if (length > data.size() - 2 - octets) return std::nullopt;
    const ByteView content = data.sub(2 + octets, length);
    data = data.sub(2 + octets + length);
    return content;
}

// Whether an EC key in PKCS#8 names a curve that is none of ours. Parsed without libcrypto:
// BoringSSL and OpenSSL know different curves.
bool namesForeignCurve(ByteView pkcs8) {
    constexpr uint8_t kInteger = 0x02;
    constexpr uint8_t kOid = 0x06;
    constexpr uint8_t kSequence = 0x30;
    std::optional<ByteView> info = readElement(pkcs8, kSequence);
    if (!info || !readElement(*info, kInteger)) return false;
    std::optional<ByteView> identifier = readElement(*info, kSequence);
    if (!identifier || !readElement(*identifier, kOid)) return false;
    const std::optional<ByteView> oid = readElement(*identifier, kOid);
    if (!oid) return false;
    return findCurveOfOid(*oid) == nullptr;
}

uint32_t curveOf(EVP_PKEY* key) {
    const EC_KEY* ec = EVP_PKEY_get0_EC_KEY(key);
    const EC_GROUP* group = ec == nullptr ? nullptr : EC_KEY_get0_group(ec);
    const int nid = group == nullptr ? NID_undef : EC_GROUP_get_curve_name(group);
    const Curve* known = findCurveOfNid(nid);
    if (known == nullptr) {
        refuse(KM_ERROR_UNSUPPORTED_EC_CURVE, "the key is on a curve that keymaster does not have");
    }
    return known->curve;
}

const BIGNUM* exponentOf(EVP_PKEY* key) {
    const RSA* rsa = EVP_PKEY_get0_RSA(key);
    const BIGNUM* exponent = nullptr;
    if (rsa != nullptr) RSA_get0_key(rsa, nullptr, &exponent, nullptr);
    if (exponent == nullptr) {
        refuse(KM_ERROR_UNKNOWN_ERROR, "libcrypto gives no exponent of an RSA key");
    }
    return exponent;
}

uint64_t exponentValue(EVP_PKEY* key) {
    const Bytes bytes = numberBytes(exponentOf(key));
    if (bytes.size() > sizeof(uint64_t)) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the RSA key's public exponent has ", bytes.size(),
               " bytes, at most 8 are taken");
    }
    return loadBig(bytes.data(), bytes.size());
}

void checkPkcs8(uint32_t algorithm, ByteView data) {
    const CryptoPtr<EVP_PKEY> key = parsePrivateKey(data);
    if (key == nullptr) {
        const bool foreign = algorithm == KM_ALGORITHM_EC && namesForeignCurve(data);
        if (foreign) {
            refuse(KM_ERROR_UNSUPPORTED_EC_CURVE,
                   "the PKCS#8 key names a curve that keymaster does not have");
        }
        refuse(KM_ERROR_INVALID_ARGUMENT, "the key's ", data.size(),
               " bytes are no consistent private key in PKCS#8");
    }
    if (EVP_PKEY_id(key.get()) != keyType(algorithm)) {
        refuse(KM_ERROR_INCOMPATIBLE_ALGORITHM, "the PKCS#8 key is of another algorithm than ",
               algorithmWord(algorithm));
    }
    if (algorithm == KM_ALGORITHM_EC) {
        curveOf(key.get());
    } else {
        exponentValue(key.get());
    }
}

void setOddParity(Bytes& key) {
    for (uint8_t& byte : key) {
        uint8_t folded = static_cast<uint8_t>(byte & 0xFE);
        folded = static_cast<uint8_t>(folded ^ (folded >> 4));
        folded = static_cast<uint8_t>(folded ^ (folded >> 2));
        folded = static_cast<uint8_t>(folded ^ (folded >> 1));
        byte = static_cast<uint8_t>((byte & 0xFE) | (~folded & 1));
    }
}

}  // namespace

Secret makeMaterial(const KeyFacts& facts, RandomSource& random) {
    switch (facts.algorithm) {
        case KM_ALGORITHM_RSA:
            return Secret(encodePrivateKey(
                makeRsaKey(static_cast<uint32_t>(facts.bits), facts.exponent.value()).get()));
        case KM_ALGORITHM_EC:
            return Secret(encodePrivateKey(makeEcKey(facts.curve.value()).get()));
        case KM_ALGORITHM_TRIPLE_DES: {
            Secret key(random.bytes(kTripleDesBytes));
            setOddParity(key.bytes());
            return key;
        }
        default:
            return Secret(random.bytes(static_cast<size_t>(facts.bits / 8)));
    }
}

void checkMaterial(uint32_t algorithm, uint32_t format, ByteView data) {
    const uint32_t expected = isAsymmetric(algorithm) ? KM_KEY_FORMAT_PKCS8 : KM_KEY_FORMAT_RAW;
    if (format != expected) {
        refuse(KM_ERROR_UNSUPPORTED_KEY_FORMAT, "keys of algorithm ", algorithmWord(algorithm),
               " are imported in format ", expected, ", not ", format);
    }
    if (isAsymmetric(algorithm)) checkPkcs8(algorithm, data);
}

KeyFacts materialFacts(uint32_t algorithm, ByteView material) {
    KeyFacts facts;
    facts.algorithm = algorithm;
    if (!isAsymmetric(algorithm)) {
        facts.bits = uint64_t{material.size()} *
                     (algorithm == KM_ALGORITHM_TRIPLE_DES ? kTripleDesKeyBitsPerByte : 8);
        return facts;
    }
    const CryptoPtr<EVP_PKEY> key = openPrivateKey(material);
    facts.bits = static_cast<uint64_t>(EVP_PKEY_bits(key.get()));
    if (algorithm == KM_ALGORITHM_RSA) {
        facts.exponent = exponentValue(key.get());
    } else {
        facts.curve = curveOf(key.get());
    }
    return facts;
}

Bytes publicKeyOf(ByteView material) {
    return encodePublicKey(openPrivateKey(material).get());
}

PublicKeyParts publicPartsOf(uint32_t algorithm, ByteView material) {
    const CryptoPtr<EVP_PKEY> key = openPrivateKey(material);
    PublicKeyParts parts;
    parts.algorithm = algorithm;
    if (algorithm == KM_ALGORITHM_RSA) {
        const BIGNUM* modulus = nullptr;
        RSA_get0_key(EVP_PKEY_get0_RSA(key.get()), &modulus, nullptr, nullptr);
        parts.modulus = numberBytes(modulus);
        parts.exponent = numberBytes(exponentOf(key.get()));
        return parts;
    }
    const EC_KEY* ec = EVP_PKEY_get0_EC_KEY(key.get());
    const CryptoPtr<BIGNUM> x(BN_new());
    const CryptoPtr<BIGNUM> y(BN_new());
    if (ec == nullptr || x == nullptr || y == nullptr ||
        EC_POINT_get_affine_coordinates_GFp(EC_KEY_get0_group(ec), EC_KEY_get0_public_key(ec),
                                            x.get(), y.get(), nullptr) != 1) {
        refuse(KM_ERROR_UNKNOWN_ERROR, "libcrypto gives no public point of an EC key");
    }
    parts.x = numberBytes(x.get());
    parts.y = numberBytes(y.get());
    return parts;
}

}  // namespace lumo::secureapp
