// The primitives against published vectors: RFC 4493, SP 800-38B, the GCM submission's test cases
// 13 and 16, RFC 4231.
#include <gtest/gtest.h>

#include "Crypto.h"
#include "Hex.h"

namespace lumo::secureapp {
namespace {

using test::fromHex;
using test::toHex;

TEST(Crypto, CmacMatchesThePublishedExamples) {
    const std::string k128 = "2b7e151628aed2a6abf7158809cf4f3c";
    const std::string k256 = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
    const std::string message =
        "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
        "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";
    const struct {
        std::string key;
        size_t bytes;
        const char* mac;
    } cases[] = {
        {k128, 0, "bb1d6929e95937287fa37d129b756746"},
        {k128, 16, "070a16b46b4d4144f79bdd9dd04a287c"},
        {k128, 40, "dfa66747de9ae63030ca32611497c827"},
        {k128, 64, "51f0bebf7e3b9d92fc49741779363cfe"},
        {k256, 0, "028962f61b7bf89efc6b551f4667d983"},
        {k256, 40, "aaf3d8f1de5640c232f5b169b9c911e6"},
        {k256, 64, "e1992190549f6ed5696a2c056c315410"},
    };
    for (const auto& c : cases) {
        const Bytes data = fromHex(message.substr(0, 2 * c.bytes));
        EXPECT_EQ(toHex(aesCmac(fromHex(c.key), data)), c.mac) << c.bytes;
    }
}

TEST(Crypto, GcmMatchesThePublishedExamplesAndRefusesChanges) {
    const Bytes zero_key(32, 0);
    const Bytes zero_nonce(12, 0);
    EXPECT_EQ(toHex(aesGcmSeal(zero_key, zero_nonce, {}, {})), "530f8afbc74536b9a963b4f1c4cb738b");

    const Bytes key = fromHex("feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308");
    const Bytes nonce = fromHex("cafebabefacedbaddecaf888");
    const Bytes aad = fromHex("feedfacedeadbeeffeedfacedeadbeefabaddad2");
    const Bytes plain = fromHex(
        "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532f"
        "cf0e2449a6b525b16aedf5aa0de657ba637b39");
    const Bytes sealed = aesGcmSeal(key, nonce, aad, plain);
    EXPECT_EQ(toHex(sealed),
              "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b0"
              "8b1056828838c5f61e6393ba7a0abcc9f662"
              "76fc6ece0f4e1768cddf8853bb2d551b");
    EXPECT_EQ(aesGcmOpen(key, nonce, aad, sealed), plain);

    for (size_t i = 0; i < sealed.size(); ++i) {
        Bytes changed = sealed;
        changed[i] ^= 1;
        EXPECT_FALSE(aesGcmOpen(key, nonce, aad, changed)) << i;
    }
    EXPECT_FALSE(aesGcmOpen(key, nonce, {}, sealed));
    EXPECT_FALSE(aesGcmOpen(key, nonce, aad, ByteView(sealed).sub(0, 15)));
}

TEST(Crypto, HmacTakesEmptyKeysAndData) {
    EXPECT_EQ(toHex(hmacSha256(Bytes(20, 0x0B), fromHex("4869205468657265"))),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(toHex(hmacSha256({}, {})),
              "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad");
}

TEST(Crypto, PrivateKeysComeBackAndAreCheckedWhole) {
    const CryptoPtr<EVP_PKEY> keys[] = {makeRsaKey(1024, 3), makeEcKey(KM_EC_CURVE_P_224),
                                        makeEcKey(KM_EC_CURVE_P_521)};
    for (const CryptoPtr<EVP_PKEY>& key : keys) {
        Bytes encoded = encodePrivateKey(key.get());
        const CryptoPtr<EVP_PKEY> again = parsePrivateKey(encoded);
        ASSERT_NE(again, nullptr);
        EXPECT_EQ(encodePublicKey(again.get()), encodePublicKey(key.get()));
        for (size_t size = 0; size < encoded.size(); size += 7) {
            EXPECT_EQ(parsePrivateKey(ByteView(encoded).sub(0, size)), nullptr) << size;
        }
        encoded.push_back(0);
        EXPECT_EQ(parsePrivateKey(encoded), nullptr) << "a trailing byte";
    }
}

// One bit of the private scalar, and of the RSA modulus, no longer fits the public part.
TEST(Crypto, InconsistentPrivateKeysAreRefused) {
    constexpr size_t kEcScalarOffset = 36;     // in PKCS#8 of a P-256 key
    constexpr size_t kRsaModulusOffset = 100;  // inside the modulus of a 1024-bit key
    Bytes ec = encodePrivateKey(makeEcKey(KM_EC_CURVE_P_256).get());
    ec[kEcScalarOffset + 20] ^= 1;
    EXPECT_EQ(parsePrivateKey(ec), nullptr);
    Bytes rsa = encodePrivateKey(makeRsaKey(1024, 65537).get());
    rsa[kRsaModulusOffset] ^= 1;
    EXPECT_EQ(parsePrivateKey(rsa), nullptr);
}

}  // namespace
}  // namespace lumo::secureapp
