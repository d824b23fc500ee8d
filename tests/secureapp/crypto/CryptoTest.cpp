// Primitives that no other test compares with known values.
#include <gtest/gtest.h>

#include "Hex.h"
#include "secureapp/crypto/AesCmac.h"
#include "secureapp/crypto/Curves.h"
#include "secureapp/crypto/PrivateKey.h"

namespace lumo::secureapp {
namespace {

using test::fromHex;
using test::toHex;

// RFC 4493: whole and broken last blocks.
TEST(Crypto, CmacMatchesThePublishedExamples) {
    const Bytes key = fromHex("2b7e151628aed2a6abf7158809cf4f3c");
    const Bytes message =
        fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e5130c81c46a35ce411");
    EXPECT_EQ(toHex(aesCmac(key, {})), "bb1d6929e95937287fa37d129b756746");
    EXPECT_EQ(toHex(aesCmac(key, ByteView(message).sub(0, 16))),
              "070a16b46b4d4144f79bdd9dd04a287c");
    EXPECT_EQ(toHex(aesCmac(key, message)), "dfa66747de9ae63030ca32611497c827");
}

// One bit of the private scalar, or of the modulus, no longer fits the public part.
TEST(Crypto, InconsistentPrivateKeysAreRefused) {
    constexpr size_t kInEcScalar = 56;
    constexpr size_t kInRsaModulus = 100;
    Bytes ec = encodePrivateKey(makeEcKey(KM_EC_CURVE_P_256).get());
    Bytes rsa = encodePrivateKey(makeRsaKey(1024, 3).get());
    EXPECT_NE(parsePrivateKey(ec), nullptr);
    EXPECT_NE(parsePrivateKey(rsa), nullptr);
    ec[kInEcScalar] ^= 1;
    rsa[kInRsaModulus] ^= 1;
    EXPECT_EQ(parsePrivateKey(ec), nullptr);
    EXPECT_EQ(parsePrivateKey(rsa), nullptr);
}

}  // namespace
}  // namespace lumo::secureapp
