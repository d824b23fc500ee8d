#include <KeymasterHalDevice.h>
#include <TagNames.h>
#include <gtest/gtest.h>

namespace {

using keymasterdevice::KeymasterHalDevice;
using keymasterdevice::tag_string;

const char* nameOf(uint32_t tag) {
    return KeymasterHalDevice::TagToString(static_cast<keymaster_tag_t>(tag));
}

TEST(TagNames, AreThoseOfTheHeader) {
#define TAG(name) \
    { static_cast<uint32_t>(name), #name }
    const std::pair<uint32_t, const char*> tags[] = {
        TAG(KM_TAG_INVALID),        TAG(KM_TAG_PURPOSE),        TAG(KM_TAG_EC_CURVE),
        TAG(KM_TAG_USER_SECURE_ID), TAG(KM_TAG_APPLICATION_ID), TAG(KM_TAG_ROLLBACK_RESISTANT),
        TAG(KM_TAG_AUTH_TOKEN),     TAG(KM_TAG_MAC_LENGTH),     TAG(KM_TAG_RESET_SINCE_ID_ROTATION),
    };
#undef TAG
    for (const auto& [tag, name] : tags) EXPECT_STREQ(nameOf(tag), name);
    EXPECT_EQ(std::size(tag_string), 42U);
    for (const auto& entry : tag_string) EXPECT_EQ(nameOf(entry.tag), entry.name) << "found twice";
}

TEST(TagNames, NewerAndOtherTagsHaveNone) {
    EXPECT_EQ(nameOf(0x10000130), nullptr);  // hardware type
    EXPECT_EQ(nameOf(0x30000001), nullptr);  // the purpose's number with other type bits
}

}  // namespace
