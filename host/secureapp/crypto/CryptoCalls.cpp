#include "secureapp/crypto/CryptoCalls.h"

#include <openssl/err.h>

#include <climits>

#include "secureapp/base/Refusal.h"

namespace lumo::secureapp {

void requireCrypto(bool success, const char* step) {
    if (success) return;
    ERR_clear_error();
    refuse(KM_ERROR_UNKNOWN_ERROR, "libcrypto could not ", step);
}

const uint8_t* nonNull(ByteView data) {
    static const uint8_t nothing = 0;
    return data.empty() ? &nothing : data.data();
}

CryptoLength::operator int() const {
    requireCrypto(data.size() <= INT_MAX, "take data of 2 GiB at once");
    return static_cast<int>(data.size());
}

CryptoPtr<EVP_PKEY_CTX> keyContext(EVP_PKEY* key, int (*init)(EVP_PKEY_CTX*)) {
    CryptoPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
    requireCrypto(context != nullptr && init(context.get()) == 1, "begin to use a key");
    return context;
}

CryptoPtr<EVP_PKEY_CTX> rsaContext(EVP_PKEY* key, int (*init)(EVP_PKEY_CTX*), int padding) {
    CryptoPtr<EVP_PKEY_CTX> context = keyContext(key, init);
    requireCrypto(EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) == 1, "set an RSA padding");
    return context;
}

}  // namespace lumo::secureapp
