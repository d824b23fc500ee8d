// Agreement on the HMAC key and the tokens under it. The expected values were computed with another
// library.
#include <gtest/gtest.h>

#include <numeric>

#include "../support/TestServices.h"
#include "Crypto.h"
#include "Hex.h"
#include "SharedHmac.h"

namespace lumo::secureapp {
namespace {

using test::CountingRandom;
using test::fromHex;
using test::MemoryState;
using test::toHex;

Bytes countUp(size_t count, uint8_t first) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

const HmacSharingParameters kFirst = {{}, Bytes(32, 0x11)};
const HmacSharingParameters kSecond = {Bytes(32, 0xA0), Bytes(32, 0x22)};

Bytes firstKey() {
    return deriveSharedKey(countUp(32, 0), {kFirst});
}

TEST(SharedHmac, DerivesKeyAndCheckOfTheVectors) {
    const Bytes one = firstKey();
    EXPECT_EQ(toHex(one), "6b0ba12a57af2ab16b25eee340457782bfd2de8b006ec62e93919449fa50a54c");
    EXPECT_EQ(toHex(sharingCheck(one)),
              "2507413c41c5edf192e7f1a5d91f52f55c42dfe196644d75935fc62cd1ea2890");
    const Bytes two = deriveSharedKey(countUp(32, 0), {kFirst, kSecond});
    EXPECT_EQ(toHex(two), "0202b14e8ae6bfde84a9b50ce712b9ac82f541fdda96746c84107f3731cd17d6");
    EXPECT_EQ(toHex(sharingCheck(two)),
              "e70babf9a154400b46b7d5cc5892fa7b254dbd3a452af3699beec8d08daaeb9d");
}

TEST(SharedHmac, TokensMatchTheVectors) {
    EXPECT_EQ(toHex(verificationTokenMac(firstKey(), 0x0102030405060708, 0x1122334455, 1)),
              "f998b7077bb2d893ab870328157adfd3edd67c75b69aab93b247ec7501101b10");
    EXPECT_EQ(toHex(confirmationToken(firstKey(), fromHex("68656c6c6f"))),
              "80e1a9fe1042525b11cfd1e79a1dc9a61f29b14d24466cd28cb5064e25cfa55d");

    const AuthToken token = {0x0102030405060708, 0x1112131415161718, 0, 1, 0x1122334455};
    const Bytes record = makeAuthToken(token, firstKey());
    EXPECT_EQ(toHex(record),
              "00080706050403020118171615141312110000000000000000000000010000001122334455"
              "d1a902bcf3e2d48c5d635e212d82b64cde58c0070d93762b2a703a706b2428eb");
    const std::optional<AuthToken> opened = openAuthToken(record, firstKey());
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->challenge, token.challenge);
    EXPECT_EQ(opened->user_id, token.user_id);
    EXPECT_EQ(opened->authenticator_id, 0U);
    EXPECT_EQ(opened->authenticator_type, 1U);
    EXPECT_EQ(opened->timestamp, token.timestamp);
}

TEST(SharedHmac, ChangedAuthTokensAreNone) {
    const Bytes record = makeAuthToken({1, 2, 3, 1, 5}, firstKey());
    for (size_t i = 0; i < record.size(); ++i) {
        Bytes changed = record;
        changed[i] ^= 0x80;
        EXPECT_FALSE(openAuthToken(changed, firstKey())) << i;
    }
    EXPECT_FALSE(openAuthToken(ByteView(record).sub(0, 68), firstKey()));
    EXPECT_FALSE(openAuthToken({}, firstKey()));
    EXPECT_FALSE(openAuthToken(record, Bytes(32, 0)));
    // A right MAC does not make an unknown version good.
    Bytes future = ByteView(record).sub(0, 37).copy();
    future[0] = 1;
    const Bytes mac = hmacSha256(firstKey(), future);
    future.insert(future.end(), mac.begin(), mac.end());
    EXPECT_FALSE(openAuthToken(future, firstKey()));
}

struct Instances {
    MemoryState device, tee_state, strongbox_state;
    CountingRandom random{7};
    SharedHmac tee{tee_state, device, random, KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT};
    SharedHmac strongbox{strongbox_state, device, random, KM_SECURITY_LEVEL_STRONGBOX};
};

TEST(SharedHmac, TwoInstancesAgreeInAnyOrderThatBothUse) {
    Instances both;
    EXPECT_TRUE(both.tee.ownParameters().seed.empty());
    EXPECT_EQ(both.strongbox.ownParameters().seed.size(), 32U);
    EXPECT_NE(both.tee.ownParameters().nonce, both.strongbox.ownParameters().nonce);
    EXPECT_NE(both.tee.key(), both.strongbox.key());

    std::vector<HmacSharingParameters> all = {both.strongbox.ownParameters(),
                                              both.tee.ownParameters()};
    const Bytes check = both.tee.agree(all);
    EXPECT_EQ(check.size(), 32U);
    EXPECT_EQ(both.strongbox.agree(all), check);
    EXPECT_EQ(both.tee.agree(all), check);
    EXPECT_EQ(both.tee.key(), both.strongbox.key());

    std::swap(all[0], all[1]);
    EXPECT_NE(both.tee.agree(all), check) << "the order counts";
    std::swap(all[0], all[1]);
    all[0].nonce[3] ^= 1;
    EXPECT_NE(both.tee.agree(all), check) << "another's parameters count";
}

TEST(SharedHmac, OwnParametersMustBeThereUnchanged) {
    Instances both;
    const HmacSharingParameters own = both.strongbox.ownParameters();
    HmacSharingParameters other_nonce = own;
    other_nonce.nonce[31] ^= 1;
    HmacSharingParameters no_seed = own;
    no_seed.seed.clear();
    HmacSharingParameters long_seed = both.tee.ownParameters();
    long_seed.seed.assign(33, 1);
    HmacSharingParameters short_nonce = both.tee.ownParameters();
    short_nonce.nonce.pop_back();
    const std::vector<HmacSharingParameters> refused[] = {
        {},        {both.tee.ownParameters()}, {other_nonce},
        {no_seed}, {own, long_seed},           {own, short_nonce},
    };
    const Bytes before = both.strongbox.key();
    for (const auto& all : refused) {
        try {
            both.strongbox.agree(all);
            ADD_FAILURE() << "agreed with " << all.size() << " parameters";
        } catch (const KeymasterError& error) {
            EXPECT_EQ(error.code(), KM_ERROR_INVALID_ARGUMENT);
        }
        EXPECT_EQ(both.strongbox.key(), before);
    }
}

TEST(SharedHmac, AnotherBootKeepsSeedAndSecretButNotTheNonce) {
    Instances boot;
    CountingRandom later(8);
    const SharedHmac again(boot.strongbox_state, boot.device, later, KM_SECURITY_LEVEL_STRONGBOX);
    EXPECT_EQ(again.ownParameters().seed, boot.strongbox.ownParameters().seed);
    EXPECT_NE(again.ownParameters().nonce, boot.strongbox.ownParameters().nonce);
    EXPECT_EQ(boot.device.records.at("shared-secret").size(), 32U);
}

}  // namespace
}  // namespace lumo::secureapp
