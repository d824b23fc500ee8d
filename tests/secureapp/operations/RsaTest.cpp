// RSA. Whatever the engine makes is judged by libcrypto's one-call functions, told every setting,
// or compared with a block written out by hand; and the other way round.
#include <openssl/bn.h>
#include <openssl/rsa.h>

#include "OperationTest.h"

namespace lumo::test {
namespace {

constexpr size_t k = 128;  // bytes of the modulus
constexpr uint64_t kBare = KM_PAD_NONE;
constexpr uint64_t kPss = KM_PAD_RSA_PSS;
constexpr uint64_t kOaep = KM_PAD_RSA_OAEP;
constexpr uint64_t kPkcs1Sign = KM_PAD_RSA_PKCS1_1_5_SIGN;
constexpr uint64_t kPkcs1Encrypt = KM_PAD_RSA_PKCS1_1_5_ENCRYPT;
constexpr auto kFailed = KM_ERROR_VERIFICATION_FAILED;
constexpr auto kLength = KM_ERROR_INVALID_INPUT_LENGTH;
constexpr auto kArgument = KM_ERROR_INVALID_ARGUMENT;
constexpr auto kUnknown = KM_ERROR_UNKNOWN_ERROR;

EVP_PKEY* pair() {
    static const auto key = makeRsaKey(8 * k, 65537);
    return key.get();
}

const OpenedKey& rsaKey() {
    static const OpenedKey key = [] {
        ParamSet all;
        for (uint64_t value = 0; value <= KM_DIGEST_SHA_2_512; ++value) all.add(digest(value));
        for (uint64_t value = kBare; value <= kPkcs1Sign; ++value) all.add(padding(value));
        return testKey(KM_ALGORITHM_RSA, encodePrivateKey(pair()), all);
    }();
    return key;
}

// One call of EVP_PKEY_encrypt or _decrypt. With a digest: OAEP.
using Crypt = int (*)(EVP_PKEY_CTX*, uint8_t*, size_t*, const uint8_t*, size_t);
Bytes judge(Crypt crypt, int rsa_padding, ByteView in, const EVP_MD* md = nullptr,
            const EVP_MD* mgf1 = EVP_sha1()) {
    const CryptoPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(pair(), nullptr));
    EVP_PKEY_CTX* c = context.get();
    EXPECT_EQ(crypt == EVP_PKEY_encrypt ? EVP_PKEY_encrypt_init(c) : EVP_PKEY_decrypt_init(c), 1);
    EXPECT_EQ(EVP_PKEY_CTX_set_rsa_padding(c, rsa_padding), 1);
    if (md != nullptr) {
        EXPECT_EQ(EVP_PKEY_CTX_set_rsa_oaep_md(c, md), 1);
        EXPECT_EQ(EVP_PKEY_CTX_set_rsa_mgf1_md(c, mgf1), 1);
    }
    Bytes out(k);
    size_t length = out.size();
    EXPECT_EQ(crypt(c, out.data(), &length, in.data(), in.size()), 1);
    out.resize(length);
    return out;
}

Bytes rawPublic(ByteView block) {
    return judge(EVP_PKEY_encrypt, RSA_NO_PADDING, block);
}

void setUpSignature(EVP_PKEY_CTX* context, const EVP_MD* md, bool pss, size_t salt) {
    const int rsa_padding = pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING;
    ASSERT_EQ(EVP_PKEY_CTX_set_rsa_padding(context, rsa_padding), 1);
    if (!pss) return;
    ASSERT_EQ(EVP_PKEY_CTX_set_rsa_pss_saltlen(context, static_cast<int>(salt)), 1);
    ASSERT_EQ(EVP_PKEY_CTX_set_rsa_mgf1_md(context, md), 1);
}

bool judgeVerify(const EVP_MD* md, bool pss, size_t salt, ByteView data, ByteView signature) {
    const CryptoPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
    EVP_PKEY_CTX* settings = nullptr;
    EXPECT_EQ(EVP_DigestVerifyInit(context.get(), &settings, md, nullptr, pair()), 1);
    setUpSignature(settings, md, pss, salt);
    return EVP_DigestVerify(context.get(), signature.data(), signature.size(), data.data(),
                            data.size()) == 1;
}

Bytes judgeSign(const EVP_MD* md, bool pss, size_t salt, ByteView data) {
    const CryptoPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
    EVP_PKEY_CTX* settings = nullptr;
    EXPECT_EQ(EVP_DigestSignInit(context.get(), &settings, md, nullptr, pair()), 1);
    setUpSignature(settings, md, pss, salt);
    Bytes signature(k);
    size_t length = k;
    EXPECT_EQ(EVP_DigestSign(context.get(), signature.data(), &length, data.data(), data.size()),
              1);
    return signature;
}

TEST(Rsa, SignsAndVerifiesWithEveryDigest) {
    const Bytes message = pattern(1024);
    for (uint32_t i = 0; i < 11; ++i) {  // PSS with SHA-512 is too big for the key
        const bool pss = i >= 6;
        const uint32_t value = KM_DIGEST_MD5 + i % 6;
        SCOPED_TRACE(testing::Message() << "PSS " << pss << " digest " << value);
        const ParamSet params = {padding(pss ? kPss : kPkcs1Sign), digest(value)};
        const EVP_MD* md = evpDigest(value);
        const size_t salt = digestBits(value) / 8;
        const Bytes ours = run(kSign, rsaKey(), params, message, {}, 100);
        EXPECT_TRUE(judgeVerify(md, pss, salt, message, ours));

        const auto verify = [&](const Bytes& data, const Bytes& signature) {
            return runError(kVerify, rsaKey(), params, data, signature, 300);
        };
        const Bytes theirs = judgeSign(md, pss, salt, message);
        EXPECT_EQ(verify(message, theirs), KM_ERROR_OK);
        EXPECT_EQ(verify(flipped(message, 1023), theirs), kFailed);
        for (const Bytes& bad : {flipped(theirs, 64), Bytes(), Bytes(k, 0xFF),
                                 joined(Bytes(1), theirs), ByteView(theirs).sub(1).copy()}) {
            EXPECT_EQ(verify(message, bad), kFailed) << toHex(bad);
        }
        EXPECT_EQ(verify(message, judgeSign(md, pss, 8, message)), pss ? kFailed : KM_ERROR_OK);
    }
}

TEST(Rsa, SignsUndigestedDataInThePublishedBlocks) {
    for (const size_t size : {0U, 1U, 53U, 117U, 127U}) {
        const Bytes message = pattern(size);
        const Bytes zeros(k - size);
        const Bytes type1 = joined(fromHex("0001"), Bytes(k - 3 - std::min(size, k - 11), 0xFF));
        for (const uint64_t pad : {kBare, kPkcs1Sign}) {
            SCOPED_TRACE(testing::Message() << "padding " << pad << " bytes " << size);
            if (pad == kPkcs1Sign && size > k - 11) continue;
            const ParamSet params = {padding(pad), digest(KM_DIGEST_NONE)};
            const Bytes block = joined(pad == kBare ? zeros : joined(type1, Bytes(1)), message);
            const Bytes ours = run(kSign, rsaKey(), params, message, {}, 7);
            EXPECT_EQ(toHex(rawPublic(ours)), toHex(block));
            EXPECT_EQ(runError(kVerify, rsaKey(), params, message, ours), KM_ERROR_OK);
            EXPECT_EQ(runError(kVerify, rsaKey(), params, joined(message, Bytes(1, 9)), ours),
                      kFailed);
        }
    }
}

TEST(Rsa, RefusesDataThatDoesNotFit) {
    Bytes modulus(k);
    BN_bn2bin(RSA_get0_n(EVP_PKEY_get0_RSA(pair())), modulus.data());
    const Bytes below = flipped(modulus, k - 1);  // it is odd
    const struct {
        const char* name;
        uint32_t purpose;
        uint64_t padding, digest;
        Bytes data;
        keymaster_error_t expected;
    } cases[] = {
        {"sign k + 1", kSign, kBare, 0, Bytes(k + 1), kLength},
        {"sign modulus", kSign, kBare, 0, modulus, kArgument},
        {"sign modulus - 1", kSign, kBare, 0, below, KM_ERROR_OK},
        {"sign k - 10", kSign, kPkcs1Sign, 0, Bytes(k - 10), kLength},
        {"sign 128 KiB", kSign, kPkcs1Sign, 0, Bytes(1 << 17), kLength},
        {"verify k + 1", kVerify, kBare, 0, Bytes(k + 1), kFailed},
        {"encrypt k + 1", kEncrypt, kBare, 0, Bytes(k + 1), kLength},
        {"encrypt modulus", kEncrypt, kBare, 0, modulus, kArgument},
        {"encrypt modulus - 1", kEncrypt, kBare, 0, below, KM_ERROR_OK},
        {"encrypt k - 10", kEncrypt, kPkcs1Encrypt, 0, Bytes(k - 10), kLength},
        {"encrypt k - 2h - 1", kEncrypt, kOaep, 4, Bytes(k - 65), kLength},
        {"decrypt k - 1", kDecrypt, kBare, 0, Bytes(k - 1), kLength},
        {"decrypt k + 1", kDecrypt, kBare, 0, Bytes(k + 1), kLength},
        {"decrypt modulus", kDecrypt, kBare, 0, modulus, kArgument},
        {"PKCS1 k - 1", kDecrypt, kPkcs1Encrypt, 0, Bytes(k - 1), kUnknown},
        {"PKCS1 k + 1", kDecrypt, kPkcs1Encrypt, 0, Bytes(k + 1), kLength},
        {"PKCS1 modulus", kDecrypt, kPkcs1Encrypt, 0, modulus, kUnknown},
        {"OAEP empty", kDecrypt, kOaep, 4, {}, kUnknown},
        {"OAEP k + 1", kDecrypt, kOaep, 4, Bytes(k + 1), kLength},
    };
    for (const auto& c : cases) {
        const ParamSet params = {padding(c.padding), digest(c.digest)};
        for (const size_t step : {SIZE_MAX, size_t{13}}) {
            EXPECT_EQ(runError(c.purpose, rsaKey(), params, c.data, Bytes(k, 1), step), c.expected)
                << c.name << " in steps of " << step;
        }
    }
}

TEST(Rsa, EncryptsForTheJudgeAndDecryptsWhatItMade) {
    const Bytes one = joined(Bytes(k - 1), Bytes(1, 1));
    EXPECT_EQ(run(kEncrypt, rsaKey(), {padding(kBare)}, Bytes(1, 1)), one);
    const Bytes leading_zeros = joined(Bytes(20), pattern(k - 20));
    EXPECT_EQ(run(kDecrypt, rsaKey(), {padding(kBare)}, rawPublic(leading_zeros)), leading_zeros);

    // 0 stands for PKCS#1, others for OAEP with that digest.
    for (uint32_t value = 0; value <= KM_DIGEST_SHA_2_384; ++value) {
        SCOPED_TRACE(value);
        const bool oaep = value != 0;
        const ParamSet params = {padding(oaep ? kOaep : kPkcs1Encrypt), digest(value)};
        const int rsa_padding = oaep ? RSA_PKCS1_OAEP_PADDING : RSA_PKCS1_PADDING;
        const EVP_MD* md = evpDigest(value);
        for (const size_t size : {size_t{0}, k - (oaep ? digestBits(value) / 4 + 2 : 11)}) {
            const Bytes message = pattern(size);
            const Bytes ours = run(kEncrypt, rsaKey(), params, message, {}, 9);
            EXPECT_EQ(judge(EVP_PKEY_decrypt, rsa_padding, ours, md), message);
            EXPECT_NE(run(kEncrypt, rsaKey(), params, message), ours);
            const Bytes theirs = judge(EVP_PKEY_encrypt, rsa_padding, message, md);
            EXPECT_EQ(run(kDecrypt, rsaKey(), params, theirs, {}, 50), message);
            if (!oaep) continue;  // where an altered block may still be a good one, if rarely
            EXPECT_EQ(runError(kDecrypt, rsaKey(), params, flipped(theirs, 60)), kUnknown);
        }
    }
    const auto decrypt = [](uint64_t value, const EVP_MD* md, const EVP_MD* mgf1) {
        const Bytes theirs = judge(EVP_PKEY_encrypt, RSA_PKCS1_OAEP_PADDING, pattern(10), md, mgf1);
        return runError(kDecrypt, rsaKey(), {padding(kOaep), digest(value)}, theirs);
    };
    EXPECT_EQ(decrypt(KM_DIGEST_SHA_2_256, EVP_sha256(), EVP_sha256()), kUnknown);
    EXPECT_EQ(decrypt(KM_DIGEST_SHA_2_256, EVP_sha1(), EVP_sha1()), kUnknown);
}

TEST(Rsa, OpensOnlyWellFormedEncryptionBlocks) {
    const struct {
        const char* name;
        const char* start;
        size_t filler;
        const char* end;
        size_t content;  // bytes; SIZE_MAX: refused
    } cases[] = {
        {"eight bytes of filler", "0002", 8, "00", k - 11},
        {"zero in the content", "0002", 20, "0000", k - 23},
        {"no content", "0002", k - 3, "00", 0},
        {"seven bytes of filler", "0002", 7, "00", SIZE_MAX},
        {"no filler", "0002", 0, "00", SIZE_MAX},
        {"no end", "0002", 8, "", SIZE_MAX},
        {"signature block", "0001", 8, "00", SIZE_MAX},
        {"wrong first byte", "0102", 8, "00", SIZE_MAX},
        {"one byte late", "000002", 8, "00", SIZE_MAX},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes block = joined(joined(fromHex(c.start), Bytes(c.filler, 0x77)), fromHex(c.end));
        block.resize(k, 0x66);
        const bool good = c.content != SIZE_MAX;
        const auto operation = begin(kDecrypt, rsaKey(), {padding(kPkcs1Encrypt)});
        Bytes content;
        EXPECT_EQ(errorOf([&] { content = operation->finish({}, rawPublic(block), {}); }),
                  good ? KM_ERROR_OK : kUnknown);
        if (!good) continue;
        EXPECT_EQ(content, ByteView(block).sub(k - c.content).copy());
    }
}

}  // namespace
}  // namespace lumo::test
