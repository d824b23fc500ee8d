// Owners of the libcrypto objects that the conversions use.
#pragma once

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>

namespace keymasterdevice {

struct CryptoDelete {
    void operator()(BIGNUM* number) const { BN_free(number); }
    void operator()(EC_GROUP* group) const { EC_GROUP_free(group); }
    void operator()(EC_KEY* key) const { EC_KEY_free(key); }
    void operator()(EC_POINT* point) const { EC_POINT_free(point); }
    void operator()(ECDSA_SIG* signature) const { ECDSA_SIG_free(signature); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(PKCS8_PRIV_KEY_INFO* info) const { PKCS8_PRIV_KEY_INFO_free(info); }
    void operator()(RSA* key) const { RSA_free(key); }
};

template <typename T>
using CryptoPtr = std::unique_ptr<T, CryptoDelete>;

}  // namespace keymasterdevice
