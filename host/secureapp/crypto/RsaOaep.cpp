#include "secureapp/crypto/RsaOaep.h"

#include <openssl/err.h>

#include "secureapp/crypto/CryptoCalls.h"
#include "secureapp/crypto/Digest.h"

namespace lumo::secureapp {

std::optional<Bytes> rsaOaepDecrypt(EVP_PKEY* key, uint32_t digest, ByteView ciphertext) {
    const auto context = rsaContext(key, EVP_PKEY_decrypt_init, RSA_PKCS1_OAEP_PADDING);
    EVP_PKEY_CTX* c = context.get();
    // By default both libraries use the OAEP digest for MGF1 too.
    requireCrypto(EVP_PKEY_CTX_set_rsa_oaep_md(c, evpDigest(digest)) == 1 &&
                      EVP_PKEY_CTX_set_rsa_mgf1_md(c, EVP_sha1()) == 1,
                  "set digest and mask to decrypt with OAEP");
    Bytes plaintext(static_cast<size_t>(EVP_PKEY_size(key)));
    size_t size = plaintext.size();
    if (EVP_PKEY_decrypt(c, plaintext.data(), &size, nonNull(ciphertext), ciphertext.size()) != 1) {
        ERR_clear_error();
        return std::nullopt;
    }
    plaintext.resize(size);
    return plaintext;
}

}  // namespace lumo::secureapp
