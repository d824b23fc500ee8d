// ECDSA, judged by libcrypto's calls over whole messages and by hand-cut integers.
#include "OperationTest.h"

namespace lumo::test {
namespace {

constexpr uint32_t kCurves[] = {KM_EC_CURVE_P_224, KM_EC_CURVE_P_256, KM_EC_CURVE_P_384,
                                KM_EC_CURVE_P_521};

OpenedKey ecKey(EVP_PKEY* key) {
    ParamSet all_digests;
    for (uint64_t value = KM_DIGEST_NONE; value <= KM_DIGEST_SHA_2_512; ++value) {
        all_digests.add(digest(value));
    }
    return testKey(KM_ALGORITHM_EC, encodePrivateKey(key), all_digests);
}

bool judge(EVP_PKEY* key, const EVP_MD* md, ByteView message, ByteView signature) {
    const CryptoPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
    return EVP_DigestVerifyInit(context.get(), nullptr, md, nullptr, key) == 1 &&
           EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                            message.size()) == 1;
}

// Takes `integer` for the hash; it is shorter than the group order, so that nothing is cut off.
bool judgeInteger(EVP_PKEY* key, ByteView integer, ByteView signature) {
    const CryptoPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
    return EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_verify(context.get(), signature.data(), signature.size(), integer.data(),
                           integer.size()) == 1;
}

TEST(Ec, SignsWithEveryCurveAndDigest) {
    const Bytes message = pattern(1024);
    for (const uint32_t curve : kCurves) {
        const auto pair = makeEcKey(curve);
        const OpenedKey key = ecKey(pair.get());
        for (uint64_t value = KM_DIGEST_SHA1; value <= KM_DIGEST_SHA_2_512; ++value) {
            SCOPED_TRACE(testing::Message() << "curve " << curve << " digest " << value);
            const EVP_MD* md = evpDigest(static_cast<uint32_t>(value));
            const Bytes signature =
                run(KM_PURPOSE_SIGN, key, {digest(value)}, message, {}, 1 + 100 * value);
            EXPECT_TRUE(judge(pair.get(), md, message, signature));
            EXPECT_EQ(runError(KM_PURPOSE_VERIFY, key, {digest(value)}, message, signature, 77),
                      KM_ERROR_OK);
        }
    }
}

TEST(Ec, UndigestedDataIsCutToTheOrder) {
    for (const uint32_t curve : kCurves) {
        SCOPED_TRACE(curve);
        const auto pair = makeEcKey(curve);
        const OpenedKey key = ecKey(pair.get());
        // Clear top bits keep the cut integer below the order and, for P-521, in 65 bytes.
        Bytes message = pattern(1024);
        message[0] &= 0x3F;
        Bytes integer = ByteView(message).sub(0, curve == KM_EC_CURVE_P_521 ? 66 : 28).copy();
        if (curve == KM_EC_CURVE_P_256) integer = ByteView(message).sub(0, 32).copy();
        if (curve == KM_EC_CURVE_P_384) integer = ByteView(message).sub(0, 48).copy();
        if (curve == KM_EC_CURVE_P_521) {  // 528 bits, of which the leftmost 521 count
            for (size_t i = 65; i > 0; --i) {
                integer[i] = static_cast<uint8_t>((integer[i - 1] << 1) | (integer[i] >> 7));
            }
            integer.erase(integer.begin());
        }
        const Bytes cut = run(KM_PURPOSE_SIGN, key, {digest(0)}, message, {}, 10);
        EXPECT_TRUE(judgeInteger(pair.get(), integer, cut));
        const Bytes beyond = flipped(message, 70);
        EXPECT_EQ(runError(KM_PURPOSE_VERIFY, key, {digest(0)}, beyond, cut), KM_ERROR_OK);

        const ByteView ten = ByteView(message).sub(0, 10);
        const Bytes whole = run(KM_PURPOSE_SIGN, key, {digest(0)}, ten, {}, 3);
        EXPECT_TRUE(judgeInteger(pair.get(), joined(Bytes(8), ten), whole));
        EXPECT_EQ(runError(KM_PURPOSE_VERIFY, key, {digest(0)}, {},
                           run(KM_PURPOSE_SIGN, key, {digest(0)}, {})),
                  KM_ERROR_OK);
    }
}

TEST(Ec, EveryFaultOfASignatureIsAFailedVerification) {
    const auto pair = makeEcKey(KM_EC_CURVE_P_256);
    const OpenedKey key = ecKey(pair.get());
    const Bytes message = pattern(100);
    const Bytes good = run(KM_PURPOSE_SIGN, key, {digest(4)}, message);
    const Bytes zeros = fromHex("3006020100020100");
    const Bytes huge = joined(fromHex("302702210"
                                      "1"),
                              joined(Bytes(32, 0xFF), fromHex("020101")));
    const Bytes signatures[] = {{},
                                flipped(good, good.size() / 2),
                                flipped(good, good.size() - 1),
                                zeros,
                                joined(good, Bytes(1)),
                                huge,
                                ByteView(good).sub(0, 20).copy()};
    for (const Bytes& signature : signatures) {
        EXPECT_EQ(runError(KM_PURPOSE_VERIFY, key, {digest(4)}, message, signature),
                  KM_ERROR_VERIFICATION_FAILED)
            << toHex(signature);
    }
    EXPECT_EQ(runError(KM_PURPOSE_VERIFY, key, {digest(4)}, flipped(message, 50), good),
              KM_ERROR_VERIFICATION_FAILED);
}

}  // namespace
}  // namespace lumo::test
