// RSA. Whatever the engine makes is judged by libcrypto's one-call functions, told every setting,
// or compared with a block written out by hand; and the other way round.
#include <openssl/bn.h>
#include <openssl/rsa.h>

#include "OperationTest.h"

namespace lumo::test {
namespace {

constexpr size_t k = 128;  // bytes of the modulus
constexpr uint64_t kPss = KM_PAD_RSA_PSS;
constexpr uint64_t kOaep = KM_PAD_RSA_OAEP;
constexpr uint64_t kPkcs1Sign = KM_PAD_RSA_PKCS1_1_5_SIGN;
constexpr uint64_t kPkcs1Encrypt = KM_PAD_RSA_PKCS1_1_5_ENCRYPT;

EVP_PKEY* pair() {
    static const auto key = makeRsaKey(8 * k, 65537);
    return key.get();
}

const OpenedKey& rsaKey() {
    static const OpenedKey key = [] {
        ParamSet all;
        for (uint64_t value = KM_DIGEST_NONE; value <= KM_DIGEST_SHA_2_512; ++value) {
            all.add(digest(value));
        }
        for (uint64_t value = KM_PAD_NONE; value <= kPkcs1Sign; ++value) all.add(padding(value));
        return testKey(KM_ALGORITHM_RSA, encodePrivateKey(pair()), all);
    }();
    return key;
}

Bytes modulus() {
    Bytes bytes(k);
    BN_bn2bin(RSA_get0_n(EVP_PKEY_get0_RSA(pair())), bytes.data());
    return bytes;
}

Bytes leftPadded(const Bytes& data) {
    return joined(Bytes(k - data.size()), data);
}

Bytes judgeEncrypt(int rsa_padding, ByteView message, const EVP_MD* md = nullptr,
                   const EVP_MD* mgf1 = nullptr) {
    const CryptoPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(pair(), nullptr));
    EXPECT_EQ(EVP_PKEY_encrypt_init(context.get()), 1);
    EXPECT_EQ(EVP_PKEY_CTX_set_rsa_padding(context.get(), rsa_padding), 1);
    if (md != nullptr) {
        EXPECT_EQ(EVP_PKEY_CTX_set_rsa_oaep_md(context.get(), md), 1);
        EXPECT_EQ(EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), mgf1), 1);
    }
    Bytes out(k);
    size_t length = out.size();
    EXPECT_EQ(EVP_PKEY_encrypt(context.get(), out.data(), &length, message.data(), message.size()),
              1);
    return out;
}

Bytes judgeDecrypt(int rsa_padding, ByteView ciphertext, const EVP_MD* md = nullptr) {
    const CryptoPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(pair(), nullptr));
    EXPECT_EQ(EVP_PKEY_decrypt_init(context.get()), 1);
    EXPECT_EQ(EVP_PKEY_CTX_set_rsa_padding(context.get(), rsa_padding), 1);
    if (md != nullptr) {
        EXPECT_EQ(EVP_PKEY_CTX_set_rsa_oaep_md(context.get(), md), 1);
        EXPECT_EQ(EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), EVP_sha1()), 1);
    }
    Bytes out(k);
    size_t length = out.size();
    EXPECT_EQ(
        EVP_PKEY_decrypt(context.get(), out.data(), &length, ciphertext.data(), ciphertext.size()),
        1);
    out.resize(length);
    return out;
}

void setUpSignature(EVP_PKEY_CTX* context, const EVP_MD* md, bool pss, int salt) {
    ASSERT_EQ(
        EVP_PKEY_CTX_set_rsa_padding(context, pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING), 1);
    if (!pss) return;
    ASSERT_EQ(EVP_PKEY_CTX_set_rsa_pss_saltlen(context, salt), 1);
    ASSERT_EQ(EVP_PKEY_CTX_set_rsa_mgf1_md(context, md), 1);
}

bool judgeVerify(const EVP_MD* md, bool pss, ByteView message, ByteView signature) {
    const CryptoPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
    EVP_PKEY_CTX* settings = nullptr;
    EXPECT_EQ(EVP_DigestVerifyInit(context.get(), &settings, md, nullptr, pair()), 1);
    setUpSignature(settings, md, pss, static_cast<int>(EVP_MD_size(md)));
    return EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                            message.size()) == 1;
}

Bytes judgeSign(const EVP_MD* md, bool pss, int salt, ByteView message) {
    const CryptoPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
    EVP_PKEY_CTX* settings = nullptr;
    EXPECT_EQ(EVP_DigestSignInit(context.get(), &settings, md, nullptr, pair()), 1);
    setUpSignature(settings, md, pss, salt);
    Bytes signature(k);
    size_t length = k;
    EXPECT_EQ(
        EVP_DigestSign(context.get(), signature.data(), &length, message.data(), message.size()),
        1);
    return signature;
}

TEST(Rsa, SignsAndVerifiesWithEveryDigest) {
    const Bytes message = pattern(1024);
    for (const uint64_t pad : {kPkcs1Sign, kPss}) {
        for (uint64_t value = KM_DIGEST_MD5; value <= KM_DIGEST_SHA_2_512; ++value) {
            if (pad == kPss && value == KM_DIGEST_SHA_2_512) continue;  // too big for 1024 bits
            SCOPED_TRACE(testing::Message() << "padding " << pad << " digest " << value);
            const ParamSet params = {padding(pad), digest(value)};
            const EVP_MD* md = evpDigest(static_cast<uint32_t>(value));
            const Bytes signature = run(KM_PURPOSE_SIGN, rsaKey(), params, message, {}, 100);
            EXPECT_TRUE(judgeVerify(md, pad == kPss, message, signature));

            const Bytes theirs =
                judgeSign(md, pad == kPss, static_cast<int>(EVP_MD_size(md)), message);
            const auto verify = [&](const Bytes& data, const Bytes& candidate) {
                return runError(KM_PURPOSE_VERIFY, rsaKey(), params, data, candidate, 300);
            };
            EXPECT_EQ(verify(message, theirs), KM_ERROR_OK);
            constexpr auto kFailed = KM_ERROR_VERIFICATION_FAILED;
            EXPECT_EQ(verify(flipped(message, 1023), theirs), kFailed);
            for (const Bytes& bad : {flipped(theirs, 64), Bytes(), Bytes(k, 0xFF),
                                     ByteView(theirs).sub(1).copy(), joined(theirs, Bytes(1))}) {
                EXPECT_EQ(verify(message, bad), kFailed) << toHex(bad);
            }
            if (pad != kPss) continue;
            EXPECT_EQ(verify(message, judgeSign(md, true, 8, message)), kFailed);
        }
    }
}

TEST(Rsa, SignsUndigestedDataInThePublishedBlocks) {
    for (const size_t size : {0U, 1U, 53U, 117U, 127U}) {
        SCOPED_TRACE(size);
        const Bytes message = pattern(size);
        const ParamSet bare = {padding(KM_PAD_NONE), digest(KM_DIGEST_NONE)};
        const Bytes signature = run(KM_PURPOSE_SIGN, rsaKey(), bare, message, {}, 7);
        EXPECT_EQ(judgeEncrypt(RSA_NO_PADDING, signature), leftPadded(message));
        EXPECT_EQ(runError(KM_PURPOSE_VERIFY, rsaKey(), bare, message, signature), KM_ERROR_OK);
        EXPECT_EQ(runError(KM_PURPOSE_VERIFY, rsaKey(), bare, pattern(size + 1), signature),
                  KM_ERROR_VERIFICATION_FAILED);
        if (size > k - 11) continue;

        const ParamSet pkcs1 = {padding(kPkcs1Sign), digest(KM_DIGEST_NONE)};
        const Bytes block =
            joined(joined(fromHex("0001"), Bytes(k - 3 - size, 0xFF)), joined(Bytes(1), message));
        const Bytes wrapped = run(KM_PURPOSE_SIGN, rsaKey(), pkcs1, message, {}, 7);
        EXPECT_EQ(toHex(judgeEncrypt(RSA_NO_PADDING, wrapped)), toHex(block));
        EXPECT_EQ(runError(KM_PURPOSE_VERIFY, rsaKey(), pkcs1, message, wrapped), KM_ERROR_OK);
        EXPECT_EQ(runError(KM_PURPOSE_VERIFY, rsaKey(), pkcs1, message, signature),
                  KM_ERROR_VERIFICATION_FAILED);
    }
}

TEST(Rsa, RefusesDataThatDoesNotFit) {
    constexpr auto kLength = KM_ERROR_INVALID_INPUT_LENGTH;
    constexpr auto kArgument = KM_ERROR_INVALID_ARGUMENT;
    Bytes below = modulus();
    below.back() = static_cast<uint8_t>(below.back() - 1);  // odd, so nothing is borrowed
    const struct {
        const char* name;
        uint32_t purpose;
        uint64_t padding, digest;
        Bytes data;
        keymaster_error_t expected;
    } cases[] = {
        {"sign k + 1", KM_PURPOSE_SIGN, KM_PAD_NONE, 0, Bytes(k + 1), kLength},
        {"sign modulus", KM_PURPOSE_SIGN, KM_PAD_NONE, 0, modulus(), kArgument},
        {"sign FF", KM_PURPOSE_SIGN, KM_PAD_NONE, 0, Bytes(k, 0xFF), kArgument},
        {"sign modulus - 1", KM_PURPOSE_SIGN, KM_PAD_NONE, 0, below, KM_ERROR_OK},
        {"sign k - 10", KM_PURPOSE_SIGN, kPkcs1Sign, 0, Bytes(k - 10), kLength},
        {"sign 128 KiB", KM_PURPOSE_SIGN, kPkcs1Sign, 0, Bytes(1 << 17), kLength},
        {"verify k + 1", KM_PURPOSE_VERIFY, KM_PAD_NONE, 0, Bytes(k + 1),
         KM_ERROR_VERIFICATION_FAILED},
        {"encrypt k + 1", KM_PURPOSE_ENCRYPT, KM_PAD_NONE, 0, Bytes(k + 1), kLength},
        {"encrypt modulus", KM_PURPOSE_ENCRYPT, KM_PAD_NONE, 0, modulus(), kArgument},
        {"encrypt modulus - 1", KM_PURPOSE_ENCRYPT, KM_PAD_NONE, 0, below, KM_ERROR_OK},
        {"PKCS1 k - 10", KM_PURPOSE_ENCRYPT, kPkcs1Encrypt, 0, Bytes(k - 10), kLength},
        {"PKCS1 k - 11", KM_PURPOSE_ENCRYPT, kPkcs1Encrypt, 0, Bytes(k - 11), KM_ERROR_OK},
        {"OAEP k - 2h - 1", KM_PURPOSE_ENCRYPT, kOaep, 4, Bytes(k - 65), kLength},
        {"OAEP k - 2h - 2", KM_PURPOSE_ENCRYPT, kOaep, 4, Bytes(k - 66), KM_ERROR_OK},
        {"decrypt k - 1", KM_PURPOSE_DECRYPT, KM_PAD_NONE, 0, Bytes(k - 1), kLength},
        {"decrypt k + 1", KM_PURPOSE_DECRYPT, KM_PAD_NONE, 0, Bytes(k + 1), kLength},
        {"decrypt modulus", KM_PURPOSE_DECRYPT, KM_PAD_NONE, 0, modulus(), kArgument},
        {"PKCS1 k - 1", KM_PURPOSE_DECRYPT, kPkcs1Encrypt, 0, Bytes(k - 1), KM_ERROR_UNKNOWN_ERROR},
        {"PKCS1 k + 1", KM_PURPOSE_DECRYPT, kPkcs1Encrypt, 0, Bytes(k + 1), kLength},
        {"PKCS1 modulus", KM_PURPOSE_DECRYPT, kPkcs1Encrypt, 0, modulus(), KM_ERROR_UNKNOWN_ERROR},
        {"OAEP empty", KM_PURPOSE_DECRYPT, kOaep, 4, {}, KM_ERROR_UNKNOWN_ERROR},
        {"OAEP k + 1", KM_PURPOSE_DECRYPT, kOaep, 4, Bytes(k + 1), kLength},
    };
    for (const auto& c : cases) {
        const ParamSet params = {padding(c.padding), digest(c.digest)};
        for (const size_t step : {SIZE_MAX, size_t{1000}, size_t{13}}) {
            EXPECT_EQ(runError(c.purpose, rsaKey(), params, c.data, Bytes(k, 1), step), c.expected)
                << c.name << " in steps of " << step;
        }
    }
    const auto operation =
        begin(KM_PURPOSE_SIGN, rsaKey(), {padding(KM_PAD_NONE), digest(KM_DIGEST_NONE)});
    EXPECT_EQ(errorOf([&] { operation->update({}, Bytes(k + 1)); }), kLength);
}

TEST(Rsa, EncryptsForTheJudgeAndDecryptsWhatItMade) {
    const ParamSet bare = {padding(KM_PAD_NONE)};
    EXPECT_EQ(run(KM_PURPOSE_ENCRYPT, rsaKey(), bare, Bytes(1, 1)), leftPadded(Bytes(1, 1)));
    const Bytes small = leftPadded(pattern(40));
    EXPECT_EQ(run(KM_PURPOSE_DECRYPT, rsaKey(), bare, judgeEncrypt(RSA_NO_PADDING, small)), small);

    const auto check = [](const ParamSet& params, size_t max, int rsa_padding, const EVP_MD* md) {
        for (const size_t size : {size_t{0}, size_t{1}, max}) {
            const Bytes message = pattern(size);
            const Bytes first = run(KM_PURPOSE_ENCRYPT, rsaKey(), params, message, {}, 9);
            EXPECT_EQ(judgeDecrypt(rsa_padding, first, md), message);
            EXPECT_NE(first, run(KM_PURPOSE_ENCRYPT, rsaKey(), params, message));
            const Bytes theirs =
                judgeEncrypt(rsa_padding, message, md, md == nullptr ? nullptr : EVP_sha1());
            EXPECT_EQ(run(KM_PURPOSE_DECRYPT, rsaKey(), params, theirs, {}, 50), message);
            // Whatever it decrypts to, it is no padded block but once in a hundred thousand.
            EXPECT_EQ(runError(KM_PURPOSE_DECRYPT, rsaKey(), params, flipped(theirs, 60)),
                      KM_ERROR_UNKNOWN_ERROR);
        }
    };
    check({padding(kPkcs1Encrypt)}, k - 11, RSA_PKCS1_PADDING, nullptr);
    for (uint32_t value = KM_DIGEST_MD5; value < KM_DIGEST_SHA_2_512; ++value) {
        SCOPED_TRACE(value);
        const EVP_MD* md = evpDigest(value);
        check({padding(kOaep), digest(value)}, k - 2 * digestBits(value) / 8 - 2,
              RSA_PKCS1_OAEP_PADDING, md);
    }
    const Bytes sha256_masked =
        judgeEncrypt(RSA_PKCS1_OAEP_PADDING, small, EVP_sha1(), EVP_sha256());
    EXPECT_EQ(runError(KM_PURPOSE_DECRYPT, rsaKey(), {padding(kOaep), digest(2)}, sha256_masked),
              KM_ERROR_UNKNOWN_ERROR);
    EXPECT_EQ(runError(KM_PURPOSE_DECRYPT, rsaKey(), {padding(kOaep), digest(3)},
                       judgeEncrypt(RSA_PKCS1_OAEP_PADDING, small, EVP_sha1(), EVP_sha1())),
              KM_ERROR_UNKNOWN_ERROR);
}

TEST(Rsa, OpensOnlyWellFormedEncryptionBlocks) {
    const auto block = [](const char* start, size_t filler, const char* rest) {
        Bytes bytes = joined(joined(fromHex(start), Bytes(filler, 0x77)), fromHex(rest));
        bytes.resize(k, 0x66);
        return bytes;
    };
    const struct {
        const char* name;
        Bytes block;
        size_t content;  // bytes; SIZE_MAX: refused
    } cases[] = {
        {"eight bytes of filler", block("0002", 8, "00"), k - 11},
        {"zero in the content", block("0002", 20, "0000"), k - 23},
        {"no content", block("0002", k - 3, "00"), 0},
        {"seven bytes of filler", block("0002", 7, "00"), SIZE_MAX},
        {"no filler", block("0002", 0, "00"), SIZE_MAX},
        {"no end", block("0002", 8, ""), SIZE_MAX},
        {"signature block", block("0001", 8, "00"), SIZE_MAX},
        {"type 3", block("0003", 8, "00"), SIZE_MAX},
        {"first byte", block("0102", 8, "00"), SIZE_MAX},
        {"one byte late", block("000002", 8, "00"), SIZE_MAX},
    };
    for (const auto& c : cases) {
        const Bytes ciphertext = judgeEncrypt(RSA_NO_PADDING, c.block);
        const ParamSet params = {padding(kPkcs1Encrypt)};
        if (c.content == SIZE_MAX) {
            EXPECT_EQ(runError(KM_PURPOSE_DECRYPT, rsaKey(), params, ciphertext),
                      KM_ERROR_UNKNOWN_ERROR)
                << c.name;
        } else {
            EXPECT_EQ(run(KM_PURPOSE_DECRYPT, rsaKey(), params, ciphertext),
                      ByteView(c.block).sub(k - c.content).copy())
                << c.name;
        }
    }
}

}  // namespace
}  // namespace lumo::test
