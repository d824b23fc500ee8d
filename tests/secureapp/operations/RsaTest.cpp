// RSA: data that does not fit, and encryption blocks written out by hand.
#include <openssl/bn.h>
#include <openssl/rsa.h>

#include "OperationTest.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/crypto/PrivateKey.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::test {
namespace {

constexpr size_t k = 128;  // bytes of the modulus
constexpr uint64_t kBare = KM_PAD_NONE;
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

Bytes rawPublic(ByteView block) {
    const CryptoPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(pair(), nullptr));
    EXPECT_EQ(EVP_PKEY_encrypt_init(context.get()), 1);
    EXPECT_EQ(EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING), 1);
    Bytes out(k);
    size_t length = out.size();
    EXPECT_EQ(EVP_PKEY_encrypt(context.get(), out.data(), &length, block.data(), block.size()), 1);
    return out;
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
