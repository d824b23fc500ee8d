// AES and triple DES: every mode in every step against one call of libcrypto, and padding.
#include "OperationTest.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::test {
namespace {

constexpr uint32_t kAes = KM_ALGORITHM_AES;
constexpr uint32_t kDes = KM_ALGORITHM_TRIPLE_DES;
constexpr uint64_t kNone = KM_PAD_NONE;
constexpr uint64_t kPkcs7 = KM_PAD_PKCS7;
constexpr size_t kTagBytes = 13;

OpenedKey cipherKey(uint32_t algorithm, const Bytes& material) {
    ParamSet all = {padding(kNone), padding(kPkcs7), minMac(96), boolParam(KM_TAG_CALLER_NONCE)};
    for (const uint64_t value : {KM_MODE_ECB, KM_MODE_CBC, KM_MODE_CTR, KM_MODE_GCM}) {
        all.add(mode(value));
    }
    return testKey(algorithm, material, all);
}

ParamSet cipherParams(uint64_t mode_value, uint64_t padding_value, const Bytes& nonce_value) {
    ParamSet params = {mode(mode_value), padding(padding_value), macLength(8 * kTagBytes)};
    if (!nonce_value.empty()) params.add(nonce(nonce_value));
    return params;
}

// The whole message by one call of libcrypto, which pads by itself.
Bytes judge(const EVP_CIPHER* cipher, const Bytes& key, const Bytes& nonce_value, bool pad,
            bool tagged, const Bytes& plaintext) {
    const CryptoPtr<EVP_CIPHER_CTX> context(EVP_CIPHER_CTX_new());
    EVP_CIPHER_CTX* c = context.get();
    EXPECT_EQ(EVP_EncryptInit_ex(c, cipher, nullptr, key.data(), nonce_value.data()), 1);
    EVP_CIPHER_CTX_set_padding(c, pad ? 1 : 0);
    Bytes out(plaintext.size() + 32);
    int body = 0;
    int rest = 0;
    const int in_len = static_cast<int>(plaintext.size());
    if (in_len != 0) {
        EXPECT_EQ(EVP_EncryptUpdate(c, out.data(), &body, plaintext.data(), in_len), 1);
    }
    EXPECT_EQ(EVP_EncryptFinal_ex(c, out.data() + body, &rest), 1);
    out.resize(static_cast<size_t>(body + rest));
    if (!tagged) return out;
    Bytes tag(kTagBytes);
    EXPECT_EQ(EVP_CIPHER_CTX_ctrl(c, EVP_CTRL_GCM_GET_TAG, kTagBytes, tag.data()), 1);
    return joined(out, tag);
}

TEST(Cipher, EveryStepGivesTheResultOfOneCall) {
    const struct {
        uint32_t algorithm;
        uint64_t mode, padding;
        const EVP_CIPHER* cipher;
        size_t key_bytes, nonce_bytes, unit;
    } cases[] = {
        {kAes, KM_MODE_ECB, kNone, EVP_aes_192_ecb(), 24, 0, 16},
        {kAes, KM_MODE_ECB, kPkcs7, EVP_aes_256_ecb(), 32, 0, 1},
        {kAes, KM_MODE_CBC, kNone, EVP_aes_256_cbc(), 32, 16, 16},
        {kAes, KM_MODE_CBC, kPkcs7, EVP_aes_128_cbc(), 16, 16, 1},
        {kAes, KM_MODE_CTR, kNone, EVP_aes_128_ctr(), 16, 16, 1},
        {kAes, KM_MODE_GCM, kNone, EVP_aes_192_gcm(), 24, 12, 1},
        {kDes, KM_MODE_ECB, kPkcs7, EVP_des_ede3_ecb(), 24, 0, 1},
        {kDes, KM_MODE_CBC, kNone, EVP_des_ede3_cbc(), 24, 8, 8},
        {kDes, KM_MODE_CBC, kPkcs7, EVP_des_ede3_cbc(), 24, 8, 1},
    };
    for (const auto& c : cases) {
        const OpenedKey key = cipherKey(c.algorithm, pattern(c.key_bytes));
        const Bytes iv = pattern(c.nonce_bytes);
        const ParamSet params = cipherParams(c.mode, c.padding, iv);
        for (size_t size = 0; size <= 64; size += c.unit) {
            const Bytes plaintext = pattern(size);
            const Bytes expected = judge(c.cipher, key.material.bytes(), iv, c.padding == kPkcs7,
                                         c.mode == KM_MODE_GCM, plaintext);
            for (size_t step = 1; step <= expected.size() + 1; ++step) {
                SCOPED_TRACE(testing::Message() << c.algorithm << " mode " << c.mode << " padding "
                                                << c.padding << " size " << size << " " << step);
                ASSERT_EQ(run(kEncrypt, key, params, plaintext, {}, step), expected);
                ASSERT_EQ(run(kDecrypt, key, params, expected, {}, step), plaintext);
            }
        }
    }
}

TEST(Cipher, RefusesDataThatDoesNotFit) {
    const OpenedKey aes = cipherKey(kAes, pattern(16));
    const OpenedKey des = cipherKey(kDes, pattern(24));
    const ParamSet bare = cipherParams(KM_MODE_ECB, kNone, {});
    const ParamSet padded = cipherParams(KM_MODE_ECB, kPkcs7, {});
    const ParamSet gcm = cipherParams(KM_MODE_GCM, kNone, Bytes(12));
    constexpr auto kLength = KM_ERROR_INVALID_INPUT_LENGTH;
    constexpr auto kArgument = KM_ERROR_INVALID_ARGUMENT;
    // A ciphertext whose last block decrypts to zeros and these bytes.
    const auto ending = [&](const OpenedKey& key, const char* bytes) {
        const Bytes end = fromHex(bytes);
        return run(kEncrypt, key, bare, joined(Bytes(48 - end.size()), end));
    };
    const struct {
        const char* name;
        uint32_t purpose;
        const OpenedKey& key;
        const ParamSet& params;
        Bytes data;
        keymaster_error_t expected;
    } cases[] = {
        {"31 bytes", kEncrypt, aes, bare, Bytes(31), kLength},
        {"17 bytes", kDecrypt, aes, bare, Bytes(17), kLength},
        {"15 bytes", kEncrypt, des, bare, Bytes(15), kLength},
        {"no block", kDecrypt, aes, padded, {}, kLength},
        {"part of a block", kDecrypt, des, padded, Bytes(12), kLength},
        {"one byte", kDecrypt, aes, padded, ending(aes, "01"), KM_ERROR_OK},
        {"no byte", kDecrypt, aes, padded, ending(aes, "010100"), kArgument},
        {"17 of 16", kDecrypt, aes, padded, ending(aes, std::string(34, '1').c_str()), kArgument},
        {"uneven", kDecrypt, aes, padded, ending(aes, "03020303"), kArgument},
        {"a block", kDecrypt, des, padded, ending(des, "0808080808080808"), KM_ERROR_OK},
        {"nine of eight", kDecrypt, des, padded, ending(des, "090909090909090909"), kArgument},
        {"part of a tag", kDecrypt, aes, gcm, Bytes(kTagBytes - 1), kLength},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(runError(c.purpose, c.key, c.params, c.data), c.expected) << c.name;
        EXPECT_EQ(runError(c.purpose, c.key, c.params, c.data, {}, 8), c.expected) << c.name;
    }
}

}  // namespace
}  // namespace lumo::test
