// Agreement on the HMAC key and the tokens under it. The expected values were computed with another
// library.
#include <gtest/gtest.h>

#include <numeric>

#include "Hex.h"
#include "KeymasterUnderTest.h"
#include "secureapp/access/SharedHmac.h"
#include "secureapp/access/Tokens.h"
#include "secureapp/crypto/Digest.h"

namespace lumo::secureapp {
namespace {

using namespace test;

const HmacSharingParameters kFirst = {{}, Bytes(32, 0x11)};
const HmacSharingParameters kSecond = {Bytes(32, 0xA0), Bytes(32, 0x22)};

Bytes keyOf(const std::vector<HmacSharingParameters>& all) {
    Bytes secret(32);
    std::iota(secret.begin(), secret.end(), uint8_t{0});
    return deriveSharedKey(secret, all);
}

TEST(SharedHmac, KeysAndTokensMatchTheVectors) {
    const Bytes key = keyOf({kFirst});
    EXPECT_EQ(toHex(key), "6b0ba12a57af2ab16b25eee340457782bfd2de8b006ec62e93919449fa50a54c");
    EXPECT_EQ(toHex(sharingCheck(key)),
              "2507413c41c5edf192e7f1a5d91f52f55c42dfe196644d75935fc62cd1ea2890");
    const Bytes two = keyOf({kFirst, kSecond});
    EXPECT_EQ(toHex(two), "0202b14e8ae6bfde84a9b50ce712b9ac82f541fdda96746c84107f3731cd17d6");
    EXPECT_EQ(toHex(sharingCheck(two)),
              "e70babf9a154400b46b7d5cc5892fa7b254dbd3a452af3699beec8d08daaeb9d");
    EXPECT_EQ(toHex(verificationTokenMac(key, 0x0102030405060708, 0x1122334455, 1)),
              "f998b7077bb2d893ab870328157adfd3edd67c75b69aab93b247ec7501101b10");
    EXPECT_EQ(toHex(confirmationToken(key, fromHex("68656c6c6f"))),
              "80e1a9fe1042525b11cfd1e79a1dc9a61f29b14d24466cd28cb5064e25cfa55d");

    const AuthToken token = {0x0102030405060708, 0x1112131415161718, 0, 1, 0x1122334455};
    const Bytes record = makeAuthToken(token, key);
    EXPECT_EQ(toHex(record),
              "00080706050403020118171615141312110000000000000000000000010000001122334455"
              "d1a902bcf3e2d48c5d635e212d82b64cde58c0070d93762b2a703a706b2428eb");
    const std::optional<AuthToken> opened = openAuthToken(record, key);
    ASSERT_TRUE(opened);
    EXPECT_EQ(makeAuthToken(*opened, key), record);
}

TEST(SharedHmac, RefusesTokensOfAnotherShape) {
    const Bytes key = keyOf({kFirst});
    const Bytes record = makeAuthToken({1, 2, 3, 1, 5}, key);
    EXPECT_FALSE(openAuthToken(ByteView(record).sub(0, 68), key));
    EXPECT_FALSE(openAuthToken({}, key));
    // A right MAC does not make an unknown version good.
    Bytes future = ByteView(record).sub(0, 37).copy();
    future[0] = 1;
    const Bytes mac = hmacSha256(key, future);
    future.insert(future.end(), mac.begin(), mac.end());
    EXPECT_FALSE(openAuthToken(future, key));
}

}  // namespace
}  // namespace lumo::secureapp
