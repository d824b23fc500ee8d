// Owners of libcrypto's objects.
#pragma once

#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>

namespace lumo::secureapp {

struct CryptoDelete {
    void operator()(BIGNUM* number) const { BN_clear_free(number); }
    void operator()(ECDSA_SIG* signature) const { ECDSA_SIG_free(signature); }
    void operator()(EC_POINT* point) const { EC_POINT_free(point); }
    void operator()(EC_KEY* key) const { EC_KEY_free(key); }
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
    void operator()(HMAC_CTX* context) const { HMAC_CTX_free(context); }
    void operator()(PKCS8_PRIV_KEY_INFO* info) const { PKCS8_PRIV_KEY_INFO_free(info); }
    void operator()(RSA* key) const { RSA_free(key); }
    // What an i2d function allocated.
    void operator()(uint8_t* encoding) const { OPENSSL_free(encoding); }
};
template <typename T>
using CryptoPtr = std::unique_ptr<T, CryptoDelete>;

}  // namespace lumo::secureapp
