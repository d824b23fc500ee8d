// ECDSA: undigested data and faulty signatures.
#include "OperationTest.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/crypto/PrivateKey.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::test {
namespace {

OpenedKey ecKey(EVP_PKEY* key) {
    ParamSet digests;
    for (uint64_t value = 0; value <= KM_DIGEST_SHA_2_512; ++value) digests.add(digest(value));
    return testKey(KM_ALGORITHM_EC, encodePrivateKey(key), digests);
}

// Takes `integer` for the hash; it must not be longer than the group order.
bool judgeInteger(EVP_PKEY* key, ByteView integer, ByteView signature) {
    const CryptoPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
    return EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_verify(context.get(), signature.data(), signature.size(), integer.data(),
                           integer.size()) == 1;
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

}  // namespace
}  // namespace lumo::test
