#include "secureapp/crypto/Digest.h"

#include <hardware/keymaster_defs.h>
#include <openssl/crypto.h>
#include <openssl/hmac.h>

#include "secureapp/crypto/CryptoCalls.h"

namespace lumo::secureapp {

Bytes sha256(ByteView data) {
    Bytes digest(kSha256Bytes);
    requireCrypto(
        EVP_Digest(nonNull(data), data.size(), digest.data(), nullptr, EVP_sha256(), nullptr) == 1,
        "make a SHA-256 digest");
    return digest;
}

Bytes hmacSha256(ByteView key, ByteView data) {
    Bytes mac(kSha256Bytes);
    requireCrypto(HMAC(EVP_sha256(), nonNull(key), CryptoLength{key}, nonNull(data), data.size(),
                       mac.data(), nullptr) != nullptr,
                  "make an HMAC with SHA-256");
    return mac;
}

bool equalSecret(ByteView a, ByteView b) {
    if (a.size() != b.size()) return false;
    return a.empty() || CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

const EVP_MD* evpDigest(uint32_t digest) {
    switch (digest) {
        case KM_DIGEST_MD5:
            return EVP_md5();
        case KM_DIGEST_SHA1:
            return EVP_sha1();
        case KM_DIGEST_SHA_2_224:
            return EVP_sha224();
        case KM_DIGEST_SHA_2_256:
            return EVP_sha256();
        case KM_DIGEST_SHA_2_384:
            return EVP_sha384();
        case KM_DIGEST_SHA_2_512:
            return EVP_sha512();
        default:
            return nullptr;
    }
}

uint32_t digestBits(uint32_t digest) {
    const EVP_MD* md = evpDigest(digest);
    return md == nullptr ? 0 : static_cast<uint32_t>(EVP_MD_size(md)) * 8;
}

}  // namespace lumo::secureapp
