// AES and triple DES: published vectors, every mode in every step against one call of libcrypto,
// and what is refused.
#include "OperationTest.h"

namespace lumo::test {
namespace {

constexpr auto kEncrypt = KM_PURPOSE_ENCRYPT;
constexpr auto kDecrypt = KM_PURPOSE_DECRYPT;

OpenedKey cipherKey(uint32_t algorithm, const Bytes& material) {
    return testKey(
        algorithm, material,
        {mode(KM_MODE_ECB), mode(KM_MODE_CBC), mode(KM_MODE_CTR), mode(KM_MODE_GCM),
         padding(KM_PAD_NONE), padding(KM_PAD_PKCS7), minMac(96), boolParam(KM_TAG_CALLER_NONCE)});
}

ParamSet cipherParams(uint64_t mode_value, uint64_t padding_value, const Bytes& nonce_value) {
    ParamSet params = {mode(mode_value), padding(padding_value)};
    if (!nonce_value.empty()) params.add(nonce(nonce_value));
    if (mode_value == KM_MODE_GCM) params.add(macLength(104));
    return params;
}

TEST(Cipher, MatchesThePublishedVectors) {
    const std::string aes_text =
        "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
        "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";
    const std::string des_text = "54686520717566636b2062726f776e20666f78206a756d70";
    const std::string k128 = "2b7e151628aed2a6abf7158809cf4f3c";
    const std::string k192 = "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b";
    const std::string k256 = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
    const std::string des = "0123456789abcdef23456789abcdef01456789abcdef0123";
    const std::string counter = "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff";
    // SP 800-38A F.1, F.2, F.5; SP 800-67 B.1, and the same in CBC from another library.
    const struct {
        uint32_t algorithm;
        uint64_t mode;
        std::string key, nonce, plaintext, ciphertext;
    } cases[] = {
        {KM_ALGORITHM_AES, KM_MODE_CTR, k128, counter, aes_text,
         "874d6191b620e3261bef6864990db6ce9806f66b7970fdff8617187bb9fffdff"
         "5ae4df3edbd5d35e5b4f09020db03eab1e031dda2fbe03d1792170a0f3009cee"},
        {KM_ALGORITHM_AES, KM_MODE_CTR, k192, counter, aes_text,
         "1abc932417521ca24f2b0459fe7e6e0b090339ec0aa6faefd5ccc2c6f4ce8e94"
         "1e36b26bd1ebc670d1bd1d665620abf74f78a7f6d29809585a97daec58c6b050"},
        {KM_ALGORITHM_AES, KM_MODE_CTR, k256, counter, aes_text,
         "601ec313775789a5b7a7f504bbf3d228f443e3ca4d62b59aca84e990cacaf5c5"
         "2b0930daa23de94ce87017ba2d84988ddfc9c58db67aada613c2dd08457941a6"},
        {KM_ALGORITHM_AES, KM_MODE_ECB, k128, "", aes_text.substr(0, 32),
         "3ad77bb40d7a3660a89ecaf32466ef97"},
        {KM_ALGORITHM_AES, KM_MODE_CBC, k128, "000102030405060708090a0b0c0d0e0f",
         aes_text.substr(0, 64),
         "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"},
        {KM_ALGORITHM_TRIPLE_DES, KM_MODE_ECB, des, "", des_text,
         "a826fd8ce53b855fcce21c8112256fe668d5c05dd9b6b900"},
        {KM_ALGORITHM_TRIPLE_DES, KM_MODE_CBC, des, "f69f2445df4f9b17", des_text,
         "a5c282bad0de3774becd2e04386b589fb5057d8552fc4336"},
    };
    for (const auto& c : cases) {
        const OpenedKey key = cipherKey(c.algorithm, fromHex(c.key));
        const ParamSet params = cipherParams(c.mode, KM_PAD_NONE, fromHex(c.nonce));
        EXPECT_EQ(toHex(run(kEncrypt, key, params, fromHex(c.plaintext), {}, 7)), c.ciphertext);
        EXPECT_EQ(toHex(run(kDecrypt, key, params, fromHex(c.ciphertext), {}, 7)), c.plaintext);
    }
}

// The whole message by one call of libcrypto, which pads by itself.
Bytes judgeEncrypt(const EVP_CIPHER* cipher, const Bytes& key, const Bytes& nonce_value, bool pad,
                   size_t tag_bytes, const Bytes& plaintext) {
    const CryptoPtr<EVP_CIPHER_CTX> context(EVP_CIPHER_CTX_new());
    EXPECT_EQ(EVP_EncryptInit_ex(context.get(), cipher, nullptr, key.data(), nonce_value.data()),
              1);
    EVP_CIPHER_CTX_set_padding(context.get(), pad ? 1 : 0);
    Bytes out(plaintext.size() + 32);
    int body = 0;
    int rest = 0;
    if (!plaintext.empty()) {
        EXPECT_EQ(EVP_EncryptUpdate(context.get(), out.data(), &body, plaintext.data(),
                                    static_cast<int>(plaintext.size())),
                  1);
    }
    EXPECT_EQ(EVP_EncryptFinal_ex(context.get(), out.data() + body, &rest), 1);
    out.resize(static_cast<size_t>(body + rest));
    Bytes tag(tag_bytes);
    if (tag_bytes != 0) {
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(tag_bytes),
                            tag.data());
    }
    return joined(out, tag);
}

TEST(Cipher, EveryStepGivesTheResultOfOneCall) {
    const struct {
        uint32_t algorithm;
        uint64_t mode, padding;
        const EVP_CIPHER* cipher;
        size_t key_bytes, nonce_bytes, tag_bytes, unit;
    } cases[] = {
        {KM_ALGORITHM_AES, KM_MODE_ECB, KM_PAD_NONE, EVP_aes_192_ecb(), 24, 0, 0, 16},
        {KM_ALGORITHM_AES, KM_MODE_ECB, KM_PAD_PKCS7, EVP_aes_256_ecb(), 32, 0, 0, 1},
        {KM_ALGORITHM_AES, KM_MODE_CBC, KM_PAD_NONE, EVP_aes_256_cbc(), 32, 16, 0, 16},
        {KM_ALGORITHM_AES, KM_MODE_CBC, KM_PAD_PKCS7, EVP_aes_128_cbc(), 16, 16, 0, 1},
        {KM_ALGORITHM_AES, KM_MODE_CTR, KM_PAD_NONE, EVP_aes_128_ctr(), 16, 16, 0, 1},
        {KM_ALGORITHM_AES, KM_MODE_GCM, KM_PAD_NONE, EVP_aes_128_gcm(), 16, 12, 13, 1},
        {KM_ALGORITHM_AES, KM_MODE_GCM, KM_PAD_NONE, EVP_aes_256_gcm(), 32, 12, 13, 1},
        {KM_ALGORITHM_TRIPLE_DES, KM_MODE_ECB, KM_PAD_PKCS7, EVP_des_ede3_ecb(), 24, 0, 0, 1},
        {KM_ALGORITHM_TRIPLE_DES, KM_MODE_CBC, KM_PAD_NONE, EVP_des_ede3_cbc(), 24, 8, 0, 8},
        {KM_ALGORITHM_TRIPLE_DES, KM_MODE_CBC, KM_PAD_PKCS7, EVP_des_ede3_cbc(), 24, 8, 0, 1},
    };
    for (const auto& c : cases) {
        const OpenedKey key = cipherKey(c.algorithm, pattern(c.key_bytes));
        const Bytes nonce_value = pattern(c.nonce_bytes);
        const ParamSet params = cipherParams(c.mode, c.padding, nonce_value);
        for (size_t size = 0; size <= 64; size += c.unit) {
            const Bytes plaintext = pattern(size);
            const Bytes expected = judgeEncrypt(c.cipher, key.material, nonce_value,
                                                c.padding == KM_PAD_PKCS7, c.tag_bytes, plaintext);
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
    const OpenedKey aes = cipherKey(KM_ALGORITHM_AES, pattern(16));
    const OpenedKey des = cipherKey(KM_ALGORITHM_TRIPLE_DES, pattern(24));
    const auto ecb = [](uint64_t pad) { return cipherParams(KM_MODE_ECB, pad, {}); };
    constexpr auto kLength = KM_ERROR_INVALID_INPUT_LENGTH;
    constexpr auto kArgument = KM_ERROR_INVALID_ARGUMENT;
    // A last decrypted block of `bytes`.
    const auto ending = [&](const OpenedKey& key, const char* bytes) {
        return run(kEncrypt, key, ecb(KM_PAD_NONE), joined(Bytes(32, 9), fromHex(bytes)));
    };
    const struct {
        const char* name;
        uint32_t purpose;
        const OpenedKey& key;
        ParamSet params;
        Bytes data;
        keymaster_error_t expected;
    } cases[] = {
        {"31 bytes", kEncrypt, aes, ecb(KM_PAD_NONE), Bytes(31), kLength},
        {"17 bytes", kDecrypt, aes, ecb(KM_PAD_NONE), Bytes(17), kLength},
        {"15 bytes", kEncrypt, des, cipherParams(KM_MODE_CBC, KM_PAD_NONE, Bytes(8)), Bytes(15),
         kLength},
        {"no block", kDecrypt, aes, ecb(KM_PAD_PKCS7), {}, kLength},
        {"part of a block", kDecrypt, des, ecb(KM_PAD_PKCS7), Bytes(12), kLength},
        {"one", kDecrypt, aes, ecb(KM_PAD_PKCS7), ending(aes, "00000000000000000000000000000001"),
         KM_ERROR_OK},
        {"none", kDecrypt, aes, ecb(KM_PAD_PKCS7), ending(aes, "01010101010101010101010101010100"),
         kArgument},
        {"more than a block", kDecrypt, aes, ecb(KM_PAD_PKCS7),
         ending(aes, "11111111111111111111111111111111"), kArgument},
        {"uneven", kDecrypt, aes, ecb(KM_PAD_PKCS7),
         ending(aes, "00000000000000000000000003020303"), kArgument},
        {"a whole block", kDecrypt, des, ecb(KM_PAD_PKCS7), ending(des, "0808080808080808"),
         KM_ERROR_OK},
        {"nine of eight", kDecrypt, des, ecb(KM_PAD_PKCS7), ending(des, "0909090909090909"),
         kArgument},
        {"no tag", kDecrypt, aes, cipherParams(KM_MODE_GCM, KM_PAD_NONE, Bytes(12)), Bytes(12),
         kLength},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(runError(c.purpose, c.key, c.params, c.data), c.expected) << c.name;
        EXPECT_EQ(runError(c.purpose, c.key, c.params, c.data, {}, 8), c.expected) << c.name;
    }
    // Padding that shows its fault only at the end: update takes the block and says nothing.
    const auto operation = begin(kDecrypt, des, ecb(KM_PAD_PKCS7));
    EXPECT_EQ(operation->update({}, ending(des, "0909090909090909")).size(), 32U);
    EXPECT_EQ(errorOf([&] { operation->finish({}, {}, {}); }), kArgument);
}

TEST(Cipher, MakesANonceOnlyToEncryptWithoutOne) {
    const OpenedKey aes = cipherKey(KM_ALGORITHM_AES, pattern(16));
    const OpenedKey des = cipherKey(KM_ALGORITHM_TRIPLE_DES, pattern(24));
    const struct {
        const OpenedKey& key;
        uint64_t mode;
        size_t nonce_bytes;
    } cases[] = {{aes, KM_MODE_CBC, 16}, {aes, KM_MODE_CTR, 16}, {aes, KM_MODE_GCM, 12},
                 {des, KM_MODE_CBC, 8},  {aes, KM_MODE_ECB, 0},  {des, KM_MODE_ECB, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mode);
        const ParamSet without = cipherParams(c.mode, KM_PAD_NONE, {});
        const auto operation = begin(kEncrypt, c.key, without);
        const ParamSet made = operation->outParams();
        EXPECT_EQ(made.size(), c.nonce_bytes == 0 ? 0U : 1U);
        if (c.nonce_bytes == 0) continue;
        const Bytes first = made.bytes(KM_TAG_NONCE).copy();
        EXPECT_EQ(first.size(), c.nonce_bytes);
        EXPECT_NE(begin(kEncrypt, c.key, without)->outParams().bytes(KM_TAG_NONCE).copy(), first);

        const Bytes ciphertext = operation->finish({}, Bytes(48, 5), {});
        const ParamSet given = cipherParams(c.mode, KM_PAD_NONE, first);
        EXPECT_EQ(run(kDecrypt, c.key, given, ciphertext), Bytes(48, 5));
        EXPECT_TRUE(begin(kDecrypt, c.key, given)->outParams().empty());
        EXPECT_TRUE(begin(kEncrypt, c.key, given)->outParams().empty());
    }
}

// Test case 4 of the GCM submission, its tag cut to 104 bits.
class Gcm : public testing::Test {
  protected:
    const OpenedKey key_ = cipherKey(KM_ALGORITHM_AES, fromHex("feffe9928665731c6d6a8f9467308308"));
    const Bytes nonce_ = fromHex("cafebabefacedbaddecaf888");
    const ParamSet params_ = cipherParams(KM_MODE_GCM, KM_PAD_NONE, nonce_);
    const Bytes aad_ = fromHex("feedfacedeadbeeffeedfacedeadbeefabaddad2");
    const Bytes plaintext_ = fromHex(
        "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a72"
        "1c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657ba637b39");
    const Bytes ciphertext_ = fromHex(
        "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e"
        "21d514b25466931c7d8f6a5aac84aa051ba30b396a0aac973d58e091"
        "5bc94fbc3221a5db94fae95ae7");

    ParamSet withAad(size_t from, size_t count) const {
        return {bytesParam(KM_TAG_ASSOCIATED_DATA, ByteView(aad_).sub(from, count))};
    }
};

TEST_F(Gcm, TakesAssociatedDataInPiecesBeforeTheData) {
    for (const size_t split : {0U, 1U, 16U, 19U}) {
        const auto encryption = begin(kEncrypt, key_, params_);
        EXPECT_TRUE(encryption->update(withAad(0, split), {}).empty());
        const Bytes first = encryption->update(withAad(split, 20), ByteView(plaintext_).sub(0, 21));
        EXPECT_EQ(joined(first, encryption->finish({}, ByteView(plaintext_).sub(21), {})),
                  ciphertext_);

        ParamSet two = withAad(0, split);
        two.add(withAad(split, 20));
        EXPECT_EQ(begin(kDecrypt, key_, params_)->finish(two, ciphertext_, {}), plaintext_);
    }
    const Bytes only_tag = begin(kEncrypt, key_, params_)->finish(withAad(0, 20), {}, {});
    EXPECT_EQ(only_tag.size(), 13U);
    EXPECT_TRUE(begin(kDecrypt, key_, params_)->finish(withAad(0, 20), only_tag, {}).empty());
}

TEST_F(Gcm, RefusesAssociatedDataAfterData) {
    for (const uint32_t purpose : {kEncrypt, kDecrypt}) {
        const auto updated = begin(purpose, key_, params_);
        updated->update(withAad(0, 10), Bytes(1));
        EXPECT_EQ(errorOf([&] { updated->update(withAad(10, 10), {}); }), KM_ERROR_INVALID_TAG);
        const auto finished = begin(purpose, key_, params_);
        finished->update({}, Bytes(1));
        EXPECT_EQ(errorOf([&] { finished->finish(withAad(0, 1), {}, {}); }), KM_ERROR_INVALID_TAG);
    }
    const auto ctr = begin(kEncrypt, key_, cipherParams(KM_MODE_CTR, KM_PAD_NONE, Bytes(16)));
    EXPECT_EQ(ctr->update({}, Bytes(1)).size() + ctr->finish(withAad(0, 20), Bytes(2), {}).size(),
              3U);
}

TEST_F(Gcm, RefusesWhateverWasChanged) {
    OpenedKey other_key = key_;
    other_key.material = flipped(key_.material, 0);
    const ParamSet other_nonce = cipherParams(KM_MODE_GCM, KM_PAD_NONE, flipped(nonce_, 11));
    const size_t last = ciphertext_.size() - 1;
    const struct {
        const char* name;
        const OpenedKey& key;
        const ParamSet& params;
        ParamSet aad;
        Bytes ciphertext;
    } cases[] = {
        {"tag", key_, params_, withAad(0, 20), flipped(ciphertext_, last)},
        {"data", key_, params_, withAad(0, 20), flipped(ciphertext_, 30)},
        {"shortened", key_, params_, withAad(0, 20), ByteView(ciphertext_).sub(0, last).copy()},
        {"associated data", key_, params_, withAad(0, 19), ciphertext_},
        {"no associated data", key_, params_, {}, ciphertext_},
        {"nonce", key_, other_nonce, withAad(0, 20), ciphertext_},
        {"key", other_key, params_, withAad(0, 20), ciphertext_},
    };
    for (const auto& c : cases) {
        const auto operation = begin(kDecrypt, c.key, c.params);
        operation->update(c.aad, c.ciphertext);
        EXPECT_EQ(errorOf([&] { operation->finish({}, {}, {}); }), KM_ERROR_VERIFICATION_FAILED)
            << c.name;
    }
}

}  // namespace
}  // namespace lumo::test
