// ECDSA, judged by libcrypto's calls over whole messages and by hand-cut integers.
#include "OperationTest.h"

namespace lumo::test {
namespace {

OpenedKey ecKey(EVP_PKEY* key) {
    ParamSet digests;
    for (uint64_t value = 0; value <= KM_DIGEST_SHA_2_512; ++value) digests.add(digest(value));
    return testKey(KM_ALGORITHM_EC, encodePrivateKey(key), digests);
}

bool judge(EVP_PKEY* key, const EVP_MD* md, ByteView message, ByteView signature) {
    const CryptoPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
    return EVP_DigestVerifyInit(context.get(), nullptr, md, nullptr, key) == 1 &&
           EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                            message.size()) == 1;
}

// Takes `integer` for the hash; it must not be longer than the group order.
bool judgeInteger(EVP_PKEY* key, ByteView integer, ByteView signature) {
    const CryptoPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
    return EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_verify(context.get(), signature.data(), signature.size(), integer.data(),
                           integer.size()) == 1;
}

TEST(Ec, SignsAndVerifiesWithEveryCurveAndDigest) {
    const Bytes message = pattern(1024);
    for (uint32_t curve = KM_EC_CURVE_P_224; curve <= KM_EC_CURVE_P_521; ++curve) {
        const auto pair = makeEcKey(curve);
        const OpenedKey key = ecKey(pair.get());
        for (uint32_t value = KM_DIGEST_SHA1; value <= KM_DIGEST_SHA_2_512; ++value) {
            SCOPED_TRACE(testing::Message() << "curve " << curve << " digest " << value);
            const Bytes signature = run(kSign, key, {digest(value)}, message, {}, 100);
            EXPECT_TRUE(judge(pair.get(), evpDigest(value), message, signature));
            EXPECT_EQ(runError(kVerify, key, {digest(value)}, message, signature), KM_ERROR_OK);
        }
    }
}

TEST(Ec, CutsUndigestedDataToTheOrder) {
    // With a clear first bit, the leftmost 521 bits of 528 fit into 65 bytes.
    Bytes message = pattern(1024);
    message[0] &= 0x7F;
    Bytes shifted(65);
    for (size_t i = 0; i < shifted.size(); ++i) {
        shifted[i] = static_cast<uint8_t>((message[i] << 1) | (message[i + 1] >> 7));
    }
    const Bytes integers[] = {ByteView(message).sub(0, 28).copy(),
                              ByteView(message).sub(0, 32).copy(),
                              ByteView(message).sub(0, 48).copy(), shifted};
    const ParamSet params = {digest(KM_DIGEST_NONE)};
    for (uint32_t curve = KM_EC_CURVE_P_224; curve <= KM_EC_CURVE_P_521; ++curve) {
        SCOPED_TRACE(curve);
        const auto pair = makeEcKey(curve);
        const OpenedKey key = ecKey(pair.get());
        const Bytes cut = run(kSign, key, params, message, {}, 10);
        EXPECT_TRUE(judgeInteger(pair.get(), integers[curve], cut));
        EXPECT_EQ(runError(kVerify, key, params, flipped(message, 66), cut), KM_ERROR_OK);
        const Bytes ten = pattern(10);
        EXPECT_TRUE(judgeInteger(pair.get(), joined(Bytes(8), ten), run(kSign, key, params, ten)));
        const Bytes of_nothing = run(kSign, key, params, {});
        EXPECT_EQ(runError(kVerify, key, params, {}, of_nothing), KM_ERROR_OK);
    }
}

TEST(Ec, EveryFaultOfASignatureIsAFailedVerification) {
    const auto pair = makeEcKey(KM_EC_CURVE_P_256);
    const OpenedKey key = ecKey(pair.get());
    const Bytes message = pattern(100);
    const Bytes good = run(kSign, key, {digest(4)}, message);
    const auto verify = [&](const Bytes& data, const Bytes& signature) {
        return runError(kVerify, key, {digest(4)}, data, signature);
    };
    const Bytes zeros = fromHex("3006020100020100");
    const Bytes huge = fromHex("3026022100" + std::string(64, 'f') + "020101");
    for (const Bytes& bad : {Bytes(), flipped(good, good.size() / 2), joined(good, Bytes(1)), zeros,
                             huge, ByteView(good).sub(0, 20).copy()}) {
        EXPECT_EQ(verify(message, bad), KM_ERROR_VERIFICATION_FAILED) << toHex(bad);
    }
    EXPECT_EQ(verify(flipped(message, 50), good), KM_ERROR_VERIFICATION_FAILED);
}

}  // namespace
}  // namespace lumo::test
