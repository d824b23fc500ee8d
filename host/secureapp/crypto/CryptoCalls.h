// What calls of libcrypto have in common.
#pragma once

#include "secureapp/base/Bytes.h"
#include "secureapp/crypto/CryptoPtr.h"

namespace lumo::secureapp {

// For calls that fail only when libcrypto is out of memory or misused: refuses with
// KM_ERROR_UNKNOWN_ERROR and the reason "libcrypto could not STEP". Leaves libcrypto's own error
// queue empty, so that it never grows.
void requireCrypto(bool success, const char* step);

// libcrypto reads a null pointer as "not given"; empty data is given.
const uint8_t* nonNull(ByteView data);

// A length where one libcrypto takes a size_t and the other an int.
struct CryptoLength {
    ByteView data;
    operator size_t() const { return data.size(); }
    operator int() const;
};

// A context for the key, initialized by one of the EVP_PKEY_*_init functions.
CryptoPtr<EVP_PKEY_CTX> keyContext(EVP_PKEY* key, int (*init)(EVP_PKEY_CTX*));
// The same with one of libcrypto's RSA paddings.
CryptoPtr<EVP_PKEY_CTX> rsaContext(EVP_PKEY* key, int (*init)(EVP_PKEY_CTX*), int padding);

}  // namespace lumo::secureapp
