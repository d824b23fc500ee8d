// AES and triple DES: published vectors, every mode in every step against one call of libcrypto,
// and what is refused.
#include "OperationTest.h"

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

TEST(Cipher, MatchesThePublishedVectors) {
    const std::string aes_text =
        "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
        "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";
    const std::string des_text = "54686520717566636b2062726f776e20666f78206a756d70";
    const std::string des_key = "0123456789abcdef23456789abcdef01456789abcdef0123";
    const std::string counter = "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff";
    // SP 800-38A F.5; SP 800-67 B.1, and the same in CBC from another library.
    const struct {
        uint32_t algorithm;
        uint64_t mode;
        std::string key, nonce, plaintext, ciphertext;
    } cases[] = {
        {kAes, KM_MODE_CTR, "2b7e151628aed2a6abf7158809cf4f3c", counter, aes_text,
         "874d6191b620e3261bef6864990db6ce9806f66b7970fdff8617187bb9fffdff"
         "5ae4df3edbd5d35e5b4f09020db03eab1e031dda2fbe03d1792170a0f3009cee"},
        {kAes, KM_MODE_CTR, "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b", counter, aes_text,
         "1abc932417521ca24f2b0459fe7e6e0b090339ec0aa6faefd5ccc2c6f4ce8e94"
         "1e36b26bd1ebc670d1bd1d665620abf74f78a7f6d29809585a97daec58c6b050"},
        {kAes, KM_MODE_CTR, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
         counter, aes_text,
         "601ec313775789a5b7a7f504bbf3d228f443e3ca4d62b59aca84e990cacaf5c5"
         "2b0930daa23de94ce87017ba2d84988ddfc9c58db67aada613c2dd08457941a6"},
        {kDes, KM_MODE_ECB, des_key, "", des_text,
         "a826fd8ce53b855fcce21c8112256fe668d5c05dd9b6b900"},
        {kDes, KM_MODE_CBC, des_key, "f69f2445df4f9b17", des_text,
         "a5c282bad0de3774becd2e04386b589fb5057d8552fc4336"},
    };
    for (const auto& c : cases) {
        const OpenedKey key = cipherKey(c.algorithm, fromHex(c.key));
        const ParamSet params = cipherParams(c.mode, kNone, fromHex(c.nonce));
        EXPECT_EQ(toHex(run(kEncrypt, key, params, fromHex(c.plaintext), {}, 7)), c.ciphertext);
        EXPECT_EQ(toHex(run(kDecrypt, key, params, fromHex(c.ciphertext), {}, 7)), c.plaintext);
    }
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
            const Bytes expected = judge(c.cipher, key.material, iv, c.padding == kPkcs7,
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

TEST(Cipher, MakesANonceOnlyToEncryptWithoutOne) {
    const struct {
        OpenedKey key;
        uint64_t mode;
        size_t nonce_bytes;
    } cases[] = {
        {cipherKey(kAes, pattern(16)), KM_MODE_ECB, 0},
        {cipherKey(kAes, pattern(16)), KM_MODE_CBC, 16},
        {cipherKey(kAes, pattern(16)), KM_MODE_CTR, 16},
        {cipherKey(kAes, pattern(16)), KM_MODE_GCM, 12},
        {cipherKey(kDes, pattern(24)), KM_MODE_CBC, 8},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mode);
        const ParamSet without = cipherParams(c.mode, kNone, {});
        const auto operation = begin(kEncrypt, c.key, without);
        const Bytes made = operation->outParams().bytes(KM_TAG_NONCE).copy();
        EXPECT_EQ(operation->outParams().size(), c.nonce_bytes == 0 ? 0U : 1U);
        EXPECT_EQ(made.size(), c.nonce_bytes);
        if (c.nonce_bytes == 0) continue;
        EXPECT_NE(begin(kEncrypt, c.key, without)->outParams().bytes(KM_TAG_NONCE).copy(), made);

        const ParamSet given = cipherParams(c.mode, kNone, made);
        EXPECT_EQ(run(kDecrypt, c.key, given, operation->finish({}, Bytes(48), {})), Bytes(48));
        EXPECT_TRUE(begin(kDecrypt, c.key, given)->outParams().empty());
        EXPECT_TRUE(begin(kEncrypt, c.key, given)->outParams().empty());
    }
}

// Test case 4 of the GCM submission, its tag cut to 13 bytes.
class Gcm : public testing::Test {
  protected:
    const OpenedKey key_ = cipherKey(kAes, fromHex("feffe9928665731c6d6a8f9467308308"));
    const Bytes nonce_ = fromHex("cafebabefacedbaddecaf888");
    const ParamSet params_ = cipherParams(KM_MODE_GCM, kNone, nonce_);
    const Bytes aad_ = fromHex("feedfacedeadbeeffeedfacedeadbeefabaddad2");
    const Bytes plaintext_ = fromHex(
        "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a72"
        "1c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657ba637b39");
    const Bytes ciphertext_ = fromHex(
        "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e"
        "21d514b25466931c7d8f6a5aac84aa051ba30b396a0aac973d58e091"
        "5bc94fbc3221a5db94fae95ae7");

    ParamSet aad(size_t from, size_t count) const {
        return {bytesParam(KM_TAG_ASSOCIATED_DATA, ByteView(aad_).sub(from, count))};
    }
};

TEST_F(Gcm, TakesAssociatedDataInPiecesBeforeTheData) {
    const ByteView plaintext(plaintext_);
    for (const size_t split : {0U, 1U, 16U, 19U}) {
        const auto encryption = begin(kEncrypt, key_, params_);
        EXPECT_TRUE(encryption->update(aad(0, split), {}).empty());
        const Bytes first = encryption->update(aad(split, 20), plaintext.sub(0, 21));
        EXPECT_EQ(joined(first, encryption->finish({}, plaintext.sub(21), {})), ciphertext_);

        ParamSet both = aad(0, split);
        both.add(aad(split, 20));
        EXPECT_EQ(begin(kDecrypt, key_, params_)->finish(both, ciphertext_, {}), plaintext_);
    }
    const Bytes only_tag = begin(kEncrypt, key_, params_)->finish(aad(0, 20), {}, {});
    EXPECT_EQ(only_tag.size(), kTagBytes);
    EXPECT_TRUE(begin(kDecrypt, key_, params_)->finish(aad(0, 20), only_tag, {}).empty());
}

TEST_F(Gcm, RefusesAssociatedDataAfterData) {
    for (const uint32_t purpose : {kEncrypt, kDecrypt}) {
        const auto operation = begin(purpose, key_, params_);
        operation->update(aad(0, 10), Bytes(1));
        EXPECT_EQ(errorOf([&] { operation->update(aad(10, 10), {}); }), KM_ERROR_INVALID_TAG);
        EXPECT_EQ(errorOf([&] { operation->finish(aad(10, 10), {}, {}); }), KM_ERROR_INVALID_TAG);
    }
    const auto ctr = begin(kEncrypt, key_, cipherParams(KM_MODE_CTR, kNone, Bytes(16)));
    ctr->update({}, Bytes(1));
    EXPECT_EQ(ctr->finish(aad(0, 20), Bytes(2), {}).size(), 2U);  // there it means nothing
}

TEST_F(Gcm, RefusesWhateverWasChanged) {
    const auto decrypt = [&](const Bytes& material, const Bytes& iv, const ParamSet& data,
                             const Bytes& ciphertext) {
        const auto operation =
            begin(kDecrypt, cipherKey(kAes, material), cipherParams(KM_MODE_GCM, kNone, iv));
        operation->update(data, ciphertext);
        return errorOf([&] { operation->finish({}, {}, {}); });
    };
    const Bytes& key = key_.material;
    const size_t last = ciphertext_.size() - 1;
    constexpr auto kFailed = KM_ERROR_VERIFICATION_FAILED;
    EXPECT_EQ(decrypt(key, nonce_, aad(0, 20), ciphertext_), KM_ERROR_OK);
    EXPECT_EQ(decrypt(flipped(key, 0), nonce_, aad(0, 20), ciphertext_), kFailed);
    EXPECT_EQ(decrypt(key, flipped(nonce_, 11), aad(0, 20), ciphertext_), kFailed);
    EXPECT_EQ(decrypt(key, nonce_, aad(0, 19), ciphertext_), kFailed);
    EXPECT_EQ(decrypt(key, nonce_, {}, ciphertext_), kFailed);
    EXPECT_EQ(decrypt(key, nonce_, aad(0, 20), flipped(ciphertext_, last)), kFailed);
    EXPECT_EQ(decrypt(key, nonce_, aad(0, 20), flipped(ciphertext_, 30)), kFailed);
    EXPECT_EQ(decrypt(key, nonce_, aad(0, 20), ByteView(ciphertext_).sub(0, last).copy()), kFailed);
}

}  // namespace
}  // namespace lumo::test
