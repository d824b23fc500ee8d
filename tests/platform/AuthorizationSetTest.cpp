#include <gtest/gtest.h>
#include <keymaster/authorization_set.h>

#include <string>

namespace {

using keymaster::AuthorizationSet;

keymaster_key_param_t blobParam(keymaster_tag_t tag, const std::string& bytes) {
    return keymaster_param_blob(tag, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

std::string bytesOf(const keymaster_key_param_t& param) {
    return {reinterpret_cast<const char*>(param.blob.data), param.blob.data_length};
}

TEST(AuthorizationSet, OwnsCopiesOfWhatItIsGiven) {
    AuthorizationSet set;
    {
        std::string id = "application id";
        const keymaster_key_param_t params[] = {keymaster_param_enum(KM_TAG_ALGORITHM, 3),
                                                blobParam(KM_TAG_APPLICATION_ID, id)};
        ASSERT_TRUE(set.Reinitialize(params, 2));
        id.assign(id.size(), 'x');
    }
    std::string token(69, 't');
    ASSERT_TRUE(set.push_back(blobParam(KM_TAG_AUTH_TOKEN, token)));
    token.assign(token.size(), 'x');

    // Read through the inherited record, as the layers below do.
    const keymaster_key_param_set_t& record = set;
    ASSERT_EQ(record.length, 3U);
    EXPECT_EQ(record.params[0].enumerated, 3U);
    EXPECT_EQ(bytesOf(record.params[1]), "application id");
    EXPECT_EQ(bytesOf(record.params[2]), std::string(69, 't'));
}

TEST(AuthorizationSet, StaysInvalidUntilReinitialized) {
    AuthorizationSet set;
    const keymaster_key_param_t huge = keymaster_param_blob(KM_TAG_NONCE, nullptr, 5);
    EXPECT_FALSE(set.push_back(huge));
    EXPECT_EQ(set.is_valid(), AuthorizationSet::MALFORMED_DATA);
    EXPECT_FALSE(set.push_back(keymaster_param_bool(KM_TAG_CALLER_NONCE)));
    EXPECT_TRUE(set.Reinitialize(nullptr, 0));
    EXPECT_TRUE(set.push_back(keymaster_param_bool(KM_TAG_CALLER_NONCE)));
    EXPECT_EQ(set.is_valid(), AuthorizationSet::OK);
}

}  // namespace
