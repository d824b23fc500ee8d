#include "secureapp/crypto/Crypto.h"

#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/hmac.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <array>
#include <climits>

namespace lumo::secureapp {
namespace {

constexpr size_t kAesBlockBytes = 16;
constexpr size_t kGcmNonceBytes = 12;
constexpr size_t kGcmTagBytes = 16;
constexpr size_t kAes256Bytes = 32;

using AesBlock = std::array<uint8_t, kAesBlockBytes>;

struct PieceDelete {
    void operator()(BIGNUM* number) const { BN_free(number); }
    void operator()(EC_KEY* key) const { EC_KEY_free(key); }
    void operator()(RSA* key) const { RSA_free(key); }
    void operator()(PKCS8_PRIV_KEY_INFO* info) const { PKCS8_PRIV_KEY_INFO_free(info); }
    void operator()(uint8_t* encoding) const { OPENSSL_free(encoding); }
};
template <typename T>
using PiecePtr = std::unique_ptr<T, PieceDelete>;

// For calls of libcrypto that fail only when it is out of memory or misused.
void require(bool success) {
    if (success) return;
    ERR_clear_error();
    refuse(KM_ERROR_UNKNOWN_ERROR);
}

int intSize(ByteView data) {
    require(data.size() <= INT_MAX);
    return static_cast<int>(data.size());
}

// A length where BoringSSL takes a size_t and OpenSSL an int.
struct LibLength {
    ByteView data;
    operator size_t() const { return data.size(); }
    operator int() const { return intSize(data); }
};

// libcrypto takes a null pointer for "not given", which empty data is not.
const uint8_t* nonNull(ByteView data) {
    static const uint8_t nothing = 0;
    return data.empty() ? &nothing : data.data();
}

class AesBlockCipher {
  public:
    explicit AesBlockCipher(ByteView key) : context_(EVP_CIPHER_CTX_new()) {
        require(key.size() == kAesBlockBytes || key.size() == kAes256Bytes);
        const EVP_CIPHER* cipher =
            key.size() == kAesBlockBytes ? EVP_aes_128_ecb() : EVP_aes_256_ecb();
        require(context_ != nullptr &&
                EVP_EncryptInit_ex(context_.get(), cipher, nullptr, key.data(), nullptr) == 1);
        EVP_CIPHER_CTX_set_padding(context_.get(), 0);
    }

    AesBlock encrypt(const AesBlock& in) {
        AesBlock out = {};
        int written = 0;
        require(EVP_EncryptUpdate(context_.get(), out.data(), &written, in.data(),
                                  static_cast<int>(in.size())) == 1);
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

struct GcmCall {
    CryptoPtr<EVP_CIPHER_CTX> context{EVP_CIPHER_CTX_new()};

    GcmCall(ByteView key, ByteView nonce, bool encrypt) {
        require(context != nullptr && key.size() == kAes256Bytes && nonce.size() == kGcmNonceBytes);
        require(EVP_CipherInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.data(),
                                  nonce.data(), encrypt ? 1 : 0) == 1);
    }

    void addAad(ByteView aad) {
        int written = 0;
        if (aad.empty()) return;
        require(EVP_CipherUpdate(context.get(), nullptr, &written, aad.data(), intSize(aad)) == 1);
    }

    void run(ByteView in, uint8_t* out) {
        int written = 0;
        if (in.empty()) return;
        require(EVP_CipherUpdate(context.get(), out, &written, in.data(), intSize(in)) == 1);
    }

    bool finish() {
        uint8_t unused[kAesBlockBytes];
        int written = 0;
        return EVP_CipherFinal_ex(context.get(), unused, &written) == 1;
    }
};

CryptoPtr<EVP_PKEY_CTX> rsaContext(EVP_PKEY* key, int (*init)(EVP_PKEY_CTX*), int padding) {
    CryptoPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
    require(context != nullptr && init(context.get()) == 1 &&
            EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) == 1);
    return context;
}

// Whether the private part undoes the public one. BoringSSL looks at more than OpenSSL does while
// it parses.
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

// The key in the one form that is given out: named curve, uncompressed point.
CryptoPtr<EVP_PKEY> ecKeyInStandardForm(EC_KEY* key) {
    EC_KEY_set_asn1_flag(key, OPENSSL_EC_NAMED_CURVE);
    EC_KEY_set_conv_form(key, POINT_CONVERSION_UNCOMPRESSED);
    CryptoPtr<EVP_PKEY> result(EVP_PKEY_new());
    require(result != nullptr && EVP_PKEY_set1_EC_KEY(result.get(), key) == 1);
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
    const PiecePtr<EC_KEY> ec(EVP_PKEY_get1_EC_KEY(key.get()));
    require(ec != nullptr);
    return ecKeyInStandardForm(ec.get());
}

// Null when it does not parse.
CryptoPtr<EVP_PKEY> decodePrivateKey(ByteView pkcs8) {
    if (pkcs8.empty() || pkcs8.size() > INT_MAX) return nullptr;
    const uint8_t* position = pkcs8.data();
    const PiecePtr<PKCS8_PRIV_KEY_INFO> info(
        d2i_PKCS8_PRIV_KEY_INFO(nullptr, &position, static_cast<long>(pkcs8.size())));
    if (info == nullptr || position != pkcs8.end()) return nullptr;
    return CryptoPtr<EVP_PKEY>(EVP_PKCS82PKEY(info.get()));
}

// The bytes that an i2d function allocated.
Bytes copyEncoding(uint8_t* encoding, int size) {
    const PiecePtr<uint8_t> owner(encoding);
    require(size > 0 && encoding != nullptr);
    return Bytes(encoding, encoding + size);
}

int curveNid(uint32_t curve) {
    switch (curve) {
        case KM_EC_CURVE_P_224:
            return NID_secp224r1;
        case KM_EC_CURVE_P_256:
            return NID_X9_62_prime256v1;
        case KM_EC_CURVE_P_384:
            return NID_secp384r1;
        case KM_EC_CURVE_P_521:
            return NID_secp521r1;
        default:
            refuse(KM_ERROR_UNSUPPORTED_EC_CURVE);
    }
}

}  // namespace

void CryptoDelete::operator()(EVP_PKEY* key) const {
    EVP_PKEY_free(key);
}
void CryptoDelete::operator()(EVP_PKEY_CTX* context) const {
    EVP_PKEY_CTX_free(context);
}
void CryptoDelete::operator()(EVP_MD_CTX* context) const {
    EVP_MD_CTX_free(context);
}
void CryptoDelete::operator()(EVP_CIPHER_CTX* context) const {
    EVP_CIPHER_CTX_free(context);
}

Bytes sha256(ByteView data) {
    Bytes digest(kSha256Bytes);
    require(EVP_Digest(nonNull(data), data.size(), digest.data(), nullptr, EVP_sha256(), nullptr) ==
            1);
    return digest;
}

Bytes hmacSha256(ByteView key, ByteView data) {
    Bytes mac(kSha256Bytes);
    require(HMAC(EVP_sha256(), nonNull(key), LibLength{key}, nonNull(data), data.size(), mac.data(),
                 nullptr) != nullptr);
    return mac;
}

// By hand: BoringSSL has only CMAC_*, which OpenSSL 3 deprecates for an interface of its own.
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

Bytes aesGcmSeal(ByteView key, ByteView nonce, ByteView aad, ByteView plaintext) {
    GcmCall call(key, nonce, true);
    Bytes sealed(plaintext.size() + kGcmTagBytes);
    call.addAad(aad);
    call.run(plaintext, sealed.data());
    require(call.finish());
    require(EVP_CIPHER_CTX_ctrl(call.context.get(), EVP_CTRL_AEAD_GET_TAG, kGcmTagBytes,
                                sealed.data() + plaintext.size()) == 1);
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
    require(EVP_CIPHER_CTX_ctrl(call.context.get(), EVP_CTRL_AEAD_SET_TAG, kGcmTagBytes,
                                tag.data()) == 1);
    if (!call.finish()) {
        ERR_clear_error();
        OPENSSL_cleanse(plaintext.data(), plaintext.size());
        return std::nullopt;
    }
    return plaintext;
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

CryptoPtr<EVP_PKEY> parsePrivateKey(ByteView pkcs8) {
    CryptoPtr<EVP_PKEY> key = decodePrivateKey(pkcs8);
    if (key != nullptr && isConsistent(key.get())) return inStandardForm(std::move(key));
    ERR_clear_error();
    return nullptr;
}

CryptoPtr<EVP_PKEY> openPrivateKey(ByteView pkcs8) {
    CryptoPtr<EVP_PKEY> key = decodePrivateKey(pkcs8);
    require(key != nullptr);
    return inStandardForm(std::move(key));
}

Bytes encodePrivateKey(EVP_PKEY* key) {
    const PiecePtr<PKCS8_PRIV_KEY_INFO> info(EVP_PKEY2PKCS8(key));
    require(info != nullptr);
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
    const PiecePtr<RSA> rsa(RSA_new());
    const PiecePtr<BIGNUM> e(BN_new());
    require(bits <= INT_MAX && rsa != nullptr && e != nullptr &&
            BN_set_word(e.get(), exponent) == 1);
    require(RSA_generate_key_ex(rsa.get(), static_cast<int>(bits), e.get(), nullptr) == 1);
    CryptoPtr<EVP_PKEY> key(EVP_PKEY_new());
    require(key != nullptr && EVP_PKEY_set1_RSA(key.get(), rsa.get()) == 1);
    return key;
}

CryptoPtr<EVP_PKEY> makeEcKey(uint32_t curve) {
    const PiecePtr<EC_KEY> key(EC_KEY_new_by_curve_name(curveNid(curve)));
    require(key != nullptr && EC_KEY_generate_key(key.get()) == 1);
    return ecKeyInStandardForm(key.get());
}

std::optional<Bytes> rsaOaepDecrypt(EVP_PKEY* key, uint32_t digest, ByteView ciphertext) {
    const auto context = rsaContext(key, EVP_PKEY_decrypt_init, RSA_PKCS1_OAEP_PADDING);
    EVP_PKEY_CTX* c = context.get();
    // Both libraries would take the OAEP digest for MGF1 too.
    require(EVP_PKEY_CTX_set_rsa_oaep_md(c, evpDigest(digest)) == 1 &&
            EVP_PKEY_CTX_set_rsa_mgf1_md(c, EVP_sha1()) == 1);
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
