#include <android/hardware/keymaster/4.1/IKeymasterDevice.h>
#include <gtest/gtest.h>
#include <hardware/keymaster_defs.h>

namespace {

using namespace ::android::hardware;
using namespace ::android::hardware::keymaster;

// The HIDL and the C names were written down separately; their numbers must agree.
TEST(KeymasterTypes, AgreeWithTheRecords) {
    const std::pair<V4_1::Tag, keymaster_tag_t> tags[] = {
        {V4_1::Tag::INVALID, KM_TAG_INVALID},
        {V4_1::Tag::PURPOSE, KM_TAG_PURPOSE},
        {V4_1::Tag::RSA_PUBLIC_EXPONENT, KM_TAG_RSA_PUBLIC_EXPONENT},
        {V4_1::Tag::EARLY_BOOT_ONLY, KM_TAG_EARLY_BOOT_ONLY},
        {V4_1::Tag::USER_SECURE_ID, KM_TAG_USER_SECURE_ID},
        {V4_1::Tag::APPLICATION_ID, KM_TAG_APPLICATION_ID},
        {V4_1::Tag::NONCE, KM_TAG_NONCE},
    };
    for (const auto& [tag, record] : tags) {
        EXPECT_EQ(static_cast<uint32_t>(tag), static_cast<uint32_t>(record)) << toString(tag);
    }
    EXPECT_EQ(int64_t{KM_TAG_APPLICATION_ID}, -1879047591) << "tags are signed in C";
    EXPECT_EQ(static_cast<uint32_t>(KM_TAG_AUTH_TOKEN), 0x900003EA);

    EXPECT_EQ(details::hidl_enum_values<V4_0::Tag>.size(), 55U);
    EXPECT_EQ(details::hidl_enum_values<V4_1::Tag>.size(), 59U);
    EXPECT_EQ(details::hidl_enum_values<V4_1::ErrorCode>.size(), 79U);
    EXPECT_EQ(V4_0::TagType::BYTES | 601U, static_cast<uint32_t>(V4_0::Tag::APPLICATION_ID));
}

}  // namespace
