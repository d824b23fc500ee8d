#include "secureapp/crypto/AesCmac.h"

#include <array>

#include "secureapp/crypto/CryptoCalls.h"
#include "secureapp/crypto/CryptoPtr.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kAesBlockBytes = 16;
constexpr size_t kAes256Bytes = 32;

using AesBlock = std::array<uint8_t, kAesBlockBytes>;

class AesBlockCipher {
  public:
    explicit AesBlockCipher(ByteView key) : context_(EVP_CIPHER_CTX_new()) {
        requireCrypto(key.size() == kAesBlockBytes || key.size() == kAes256Bytes,
                      "take a key for AES-CMAC");
        const EVP_CIPHER* cipher =
            key.size() == kAesBlockBytes ? EVP_aes_128_ecb() : EVP_aes_256_ecb();
        requireCrypto(context_ != nullptr && EVP_EncryptInit_ex(context_.get(), cipher, nullptr,
                                                                key.data(), nullptr) == 1,
                      "begin AES-CMAC");
        EVP_CIPHER_CTX_set_padding(context_.get(), 0);
    }

    AesBlock encrypt(const AesBlock& in) {
        AesBlock out = {};
        int written = 0;
        requireCrypto(EVP_EncryptUpdate(context_.get(), out.data(), &written, in.data(),
                                        static_cast<int>(in.size())) == 1,
                      "go on with AES-CMAC");
        return out;
    }

  private:
    CryptoPtr<EVP_CIPHER_CTX> context_;
};

// Multiplication by x in the field of CMAC.
AesBlock doubled(const AesBlock& in) {
    constexpr uint8_t kReduction = 0x87;
    AesBlock out = {};
    uint8_t carry = 0;
    for (size_t i = in.size(); i-- > 0;) {
        out[i] = static_cast<uint8_t>((in[i] << 1) | carry);
        carry = static_cast<uint8_t>(in[i] >> 7);
    }
    if (carry != 0) out.back() ^= kReduction;
    return out;
}

void addInto(AesBlock& block, ByteView data) {
    for (size_t i = 0; i < data.size(); ++i) block[i] ^= data[i];
}

}  // namespace

// Written out, because BoringSSL has only CMAC_*, which OpenSSL 3 deprecates in favour of EVP_MAC.
Bytes aesCmac(ByteView key, ByteView data) {
    constexpr uint8_t kPadding = 0x80;
    AesBlockCipher cipher(key);
    const AesBlock full_mask = doubled(cipher.encrypt({}));
    const AesBlock padded_mask = doubled(full_mask);

    AesBlock state = {};
    size_t offset = 0;
    for (; data.size() - offset > kAesBlockBytes; offset += kAesBlockBytes) {
        addInto(state, data.sub(offset, kAesBlockBytes));
        state = cipher.encrypt(state);
    }
    const ByteView last = data.sub(offset);
    const bool full = last.size() == kAesBlockBytes;
    addInto(state, last);
    if (!full) state[last.size()] ^= kPadding;
    const AesBlock& mask = full ? full_mask : padded_mask;
    addInto(state, ByteView(mask.data(), mask.size()));
    state = cipher.encrypt(state);
    return Bytes(state.begin(), state.end());
}

}  // namespace lumo::secureapp
