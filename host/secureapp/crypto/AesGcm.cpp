#include "secureapp/crypto/AesGcm.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include "secureapp/crypto/CryptoCalls.h"
#include "secureapp/crypto/CryptoPtr.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kAesBlockBytes = 16;
constexpr size_t kGcmNonceBytes = 12;
constexpr size_t kGcmTagBytes = 16;
constexpr size_t kAes256Bytes = 32;

struct GcmCall {
    CryptoPtr<EVP_CIPHER_CTX> context{EVP_CIPHER_CTX_new()};

    GcmCall(ByteView key, ByteView nonce, bool encrypt) {
        requireCrypto(
            context != nullptr && key.size() == kAes256Bytes && nonce.size() == kGcmNonceBytes,
            "take key and nonce for sealing");
        requireCrypto(EVP_CipherInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.data(),
                                        nonce.data(), encrypt ? 1 : 0) == 1,
                      "begin sealing");
    }

    void addAad(ByteView aad) {
        int written = 0;
        if (aad.empty()) return;
        requireCrypto(
            EVP_CipherUpdate(context.get(), nullptr, &written, aad.data(), CryptoLength{aad}) == 1,
            "seal with associated data");
    }

    void run(ByteView in, uint8_t* out) {
        int written = 0;
        if (in.empty()) return;
        requireCrypto(
            EVP_CipherUpdate(context.get(), out, &written, in.data(), CryptoLength{in}) == 1,
            "seal or open data");
    }

    bool finish() {
        uint8_t unused[kAesBlockBytes];
        int written = 0;
        return EVP_CipherFinal_ex(context.get(), unused, &written) == 1;
    }
};

}  // namespace

Bytes aesGcmSeal(ByteView key, ByteView nonce, ByteView aad, ByteView plaintext) {
    GcmCall call(key, nonce, true);
    Bytes sealed(plaintext.size() + kGcmTagBytes);
    call.addAad(aad);
    call.run(plaintext, sealed.data());
    requireCrypto(call.finish(), "end sealing");
    requireCrypto(EVP_CIPHER_CTX_ctrl(call.context.get(), EVP_CTRL_AEAD_GET_TAG, kGcmTagBytes,
                                      sealed.data() + plaintext.size()) == 1,
                  "make a seal's tag");
    return sealed;
}

std::optional<Bytes> aesGcmOpen(ByteView key, ByteView nonce, ByteView aad, ByteView sealed) {
    if (sealed.size() < kGcmTagBytes) return std::nullopt;
    const ByteView ciphertext = sealed.sub(0, sealed.size() - kGcmTagBytes);
    Bytes tag = sealed.sub(ciphertext.size()).copy();

    GcmCall call(key, nonce, false);
    Bytes plaintext(ciphertext.size());
    call.addAad(aad);
    call.run(ciphertext, plaintext.data());
    requireCrypto(EVP_CIPHER_CTX_ctrl(call.context.get(), EVP_CTRL_AEAD_SET_TAG, kGcmTagBytes,
                                      tag.data()) == 1,
                  "take a seal's tag");
    if (!call.finish()) {
        ERR_clear_error();
        OPENSSL_cleanse(plaintext.data(), plaintext.size());
        return std::nullopt;
    }
    return plaintext;
}

}  // namespace lumo::secureapp
