#include <KmParamSet.h>

#include "ServiceTest.h"

namespace {

using namespace ::lumo::test;
using ::keymaster::V4_0::KmParamSet;
using ::keymaster::V4_0::kmParamSet2Hidl;

KeyParameter filled(Tag tag) {
    KeyParameter param = longParam(tag, 0x1122334455667788);
    param.blob = hidl_vec<uint8_t>{1, 2, 3};
    return param;
}

TEST(KmParamSet, CarriesEveryType) {
    const hidl_vec<KeyParameter> from = {
        filled(Tag::ALGORITHM),      filled(Tag::PURPOSE),
        filled(Tag::KEY_SIZE),       filled(static_cast<Tag>(0x40000009)),
        filled(Tag::USER_SECURE_ID), filled(Tag::RSA_PUBLIC_EXPONENT),
        filled(Tag::ACTIVE_DATETIME)};
    const KmParamSet set(from);
    ASSERT_EQ(set.length, from.size());
    for (size_t i = 0; i < set.length; ++i) {
        EXPECT_EQ(static_cast<uint32_t>(set.params[i].tag), static_cast<uint32_t>(from[i].tag));
        EXPECT_EQ(set.params[i].long_integer, i < 4 ? 0x55667788 : 0x1122334455667788) << i;
    }

    // Any bit makes a boolean true; a false one, and a tag of no known type, is not carried.
    const KmParamSet others({longParam(Tag::CALLER_NONCE, 0x1122334455667702),
                             booleanParam(Tag::NO_AUTH_REQUIRED, false), filled(Tag::INVALID),
                             filled(static_cast<Tag>(0xB0000005))});
    ASSERT_EQ(others.length, 4U);
    EXPECT_EQ(others.params[0].tag, KM_TAG_CALLER_NONCE);
    EXPECT_EQ(others.params[0].long_integer, 1U);
    for (size_t i = 1; i < 4; ++i) EXPECT_EQ(others.params[i].tag, KM_TAG_INVALID) << i;
}

TEST(KmParamSet, SharesBytesInBothDirections) {
    for (const Tag tag : {Tag::APPLICATION_ID, static_cast<Tag>(0x80000001)}) {
        hidl_vec<KeyParameter> from = {filled(tag)};
        const KmParamSet set(from);
        ASSERT_EQ(set.params[0].blob.data_length, 3U);
        const hidl_vec<KeyParameter> back = kmParamSet2Hidl(set);
        from[0].blob[1] = 9;
        EXPECT_EQ(set.params[0].blob.data[1], 9);
        ASSERT_EQ(back.size(), 1U);
        EXPECT_EQ(back[0].tag, tag);
        EXPECT_EQ(toBytes(back[0].blob), fromHex("010903"));
    }
}

TEST(KmParamSet, ComesBackAsHidl) {
    keymaster_key_param_t params[9] = {};
    const uint32_t tags[] = {0x10000002, 0x20000001, 0x30000003, 0x40000009, 0xA00001F6,
                             0x500000C8, 0x60000190, 0xB0000005, 0x00000000};
    for (size_t i = 0; i < std::size(tags); ++i) {
        params[i].tag = static_cast<keymaster_tag_t>(tags[i]);
        params[i].long_integer = 0x1122334455667788;
    }
    const auto hidl = kmParamSet2Hidl({params, std::size(params)});
    ASSERT_EQ(hidl.size(), std::size(tags));
    for (size_t i = 0; i < hidl.size(); ++i) {
        EXPECT_EQ(static_cast<uint32_t>(hidl[i].tag), tags[i]);
        const uint64_t value = i < 4 ? 0x55667788 : i < 7 ? 0x1122334455667788 : 0;
        EXPECT_EQ(hidl[i].f.longInteger, value) << i;
    }
    EXPECT_EQ(params[6].tag, KM_TAG_ACTIVE_DATETIME);
    EXPECT_EQ(params[7].tag, KM_TAG_INVALID) << "the source loses what could not be carried";

    keymaster_key_param_t boolean = keymaster_param_bool(KM_TAG_CALLER_NONCE);
    EXPECT_TRUE(kmParamSet2Hidl({&boolean, 1})[0].f.boolValue);
    EXPECT_EQ(kmParamSet2Hidl({nullptr, 3}).size(), 0U);
    EXPECT_EQ(kmParamSet2Hidl({params, 0}).size(), 0U);
}

}  // namespace
