#include <android/hardware/keymaster/4.1/IKeymasterDevice.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hardware/keymaster_defs.h>

namespace {

using namespace ::android::hardware;
using namespace ::android::hardware::keymaster;
using ::android::sp;
using ::android::hidl::base::V1_0::DebugInfo;
using ::android::hidl::base::V1_0::IBase;
using ::testing::ElementsAre;

// Answers nothing: only what the interface itself provides is under test. The lists of 4.0 and 4.1
// differ by two methods.
template <typename Interface>
struct SilentDevice : public Interface {
    using Params = hidl_vec<V4_0::KeyParameter>;
    using Bytes = hidl_vec<uint8_t>;
    using Auth = V4_0::HardwareAuthToken;
    using Token = V4_0::VerificationToken;
    using Self = V4_0::IKeymasterDevice;
    static V4_0::ErrorCode none() { return V4_0::ErrorCode::UNIMPLEMENTED; }

    Return<void> getHardwareInfo(Self::getHardwareInfo_cb cb) override {
        cb(V4_0::SecurityLevel::STRONGBOX, "name", "author");
        return Void();
    }
    Return<void> getHmacSharingParameters(Self::getHmacSharingParameters_cb) override { return {}; }
    Return<void> computeSharedHmac(const hidl_vec<V4_0::HmacSharingParameters>&,
                                   Self::computeSharedHmac_cb) override {
        return {};
    }
    Return<void> verifyAuthorization(uint64_t, const Params&, const Auth&,
                                     Self::verifyAuthorization_cb) override {
        return {};
    }
    Return<V4_0::ErrorCode> addRngEntropy(const Bytes&) override { return none(); }
    Return<void> generateKey(const Params&, Self::generateKey_cb) override { return {}; }
    Return<void> importKey(const Params&, V4_0::KeyFormat, const Bytes&,
                           Self::importKey_cb) override {
        return {};
    }
    Return<void> importWrappedKey(const Bytes&, const Bytes&, const Bytes&, const Params&, uint64_t,
                                  uint64_t, Self::importWrappedKey_cb) override {
        return {};
    }
    Return<void> getKeyCharacteristics(const Bytes&, const Bytes&, const Bytes&,
                                       Self::getKeyCharacteristics_cb) override {
        return {};
    }
    Return<void> exportKey(V4_0::KeyFormat, const Bytes&, const Bytes&, const Bytes&,
                           Self::exportKey_cb) override {
        return {};
    }
    Return<void> attestKey(const Bytes&, const Params&, Self::attestKey_cb) override { return {}; }
    Return<void> upgradeKey(const Bytes&, const Params&, Self::upgradeKey_cb) override {
        return {};
    }
    Return<V4_0::ErrorCode> deleteKey(const Bytes&) override { return none(); }
    Return<V4_0::ErrorCode> deleteAllKeys() override { return none(); }
    Return<V4_0::ErrorCode> destroyAttestationIds() override { return none(); }
    Return<void> begin(V4_0::KeyPurpose, const Bytes&, const Params&, const Auth&,
                       Self::begin_cb) override {
        return {};
    }
    Return<void> update(uint64_t, const Params&, const Bytes&, const Auth&, const Token&,
                        Self::update_cb) override {
        return {};
    }
    Return<void> finish(uint64_t, const Params&, const Bytes&, const Bytes&, const Auth&,
                        const Token&, Self::finish_cb) override {
        return {};
    }
    Return<V4_0::ErrorCode> abort(uint64_t) override { return none(); }
};

using Device40 = SilentDevice<V4_0::IKeymasterDevice>;

struct Device41 : public SilentDevice<V4_1::IKeymasterDevice> {
    Return<V4_1::ErrorCode> deviceLocked(bool, const V4_0::VerificationToken&) override {
        return V4_1::ErrorCode::OK;
    }
    Return<V4_1::ErrorCode> earlyBootEnded() override { return V4_1::ErrorCode::EARLY_BOOT_ENDED; }
};

std::vector<std::string> chainOf(const sp<IBase>& object) {
    std::vector<std::string> chain;
    EXPECT_TRUE(object
                    ->interfaceChain([&](const auto& descriptors) {
                        chain.assign(descriptors.begin(), descriptors.end());
                    })
                    .isOk());
    return chain;
}

TEST(KeymasterInterface, KnowsItsAncestors) {
    EXPECT_THAT(chainOf(new Device40),
                ElementsAre("android.hardware.keymaster@4.0::IKeymasterDevice",
                            "android.hidl.base@1.0::IBase"));
    EXPECT_THAT(chainOf(new Device41),
                ElementsAre("android.hardware.keymaster@4.1::IKeymasterDevice",
                            "android.hardware.keymaster@4.0::IKeymasterDevice",
                            "android.hidl.base@1.0::IBase"));
}

TEST(KeymasterInterface, CastsOnlyToWhatTheObjectIs) {
    const sp<IBase> old = new Device40;
    const sp<IBase> young = new Device41;
    const sp<V4_0::IKeymasterDevice> young40 = V4_0::IKeymasterDevice::castFrom(young);
    ASSERT_NE(young40, nullptr);
    const sp<V4_1::IKeymasterDevice> young41 = V4_1::IKeymasterDevice::castFrom(young40);
    EXPECT_EQ(young41, young);
    EXPECT_EQ(young41->earlyBootEnded(), V4_1::ErrorCode::EARLY_BOOT_ENDED);

    EXPECT_EQ(sp<V4_1::IKeymasterDevice>(V4_1::IKeymasterDevice::castFrom(old)), nullptr);
    EXPECT_EQ(sp<V4_0::IKeymasterDevice>(V4_0::IKeymasterDevice::castFrom(sp<IBase>())), nullptr);
}

TEST(KeymasterInterface, AnswersTheBaseCalls) {
    const sp<V4_0::IKeymasterDevice> device = new Device41;
    std::string descriptor;
    DebugInfo info{};
    EXPECT_TRUE(device->interfaceDescriptor([&](const auto& d) { descriptor = d; }).isOk());
    EXPECT_TRUE(device->getDebugInfo([&](const auto& i) { info = i; }).isOk());
    EXPECT_EQ(descriptor, "android.hardware.keymaster@4.1::IKeymasterDevice");
    EXPECT_EQ(info.pid, -1);
    EXPECT_FALSE(device->linkToDeath(nullptr, 0));
    EXPECT_EQ(toString(device),
              "[class or subclass of android.hardware.keymaster@4.0::IKeymasterDevice]@local");
}

TEST(KeymasterTypes, PrintNames) {
    const std::pair<std::string, std::string> cases[] = {
        {toString(V4_0::Tag::APPLICATION_ID), "APPLICATION_ID"},
        {toString(static_cast<V4_0::Tag>(V4_1::Tag::STORAGE_KEY)), "0x700002d2"},
        {toString(V4_1::Tag::STORAGE_KEY), "STORAGE_KEY"},
        {toString(V4_1::Tag::PURPOSE), "PURPOSE"},
        {toString(V4_0::ErrorCode{-999}), "0xfffffc19"},
        {toString(V4_0::ErrorCode::UNKNOWN_ERROR), "UNKNOWN_ERROR"},
        {toString(V4_1::ErrorCode::EARLY_BOOT_ENDED), "EARLY_BOOT_ENDED"},
        {toString(V4_0::KeyFormat{2}), "0x2"},
        {V4_0::toString<V4_0::HardwareAuthenticatorType>(9), "NONE | PASSWORD | 0x8 (0x9)"},
    };
    for (const auto& [printed, expected] : cases) EXPECT_EQ(printed, expected);

    V4_0::KeyParameter param{};
    param.tag = V4_0::Tag::ALGORITHM;
    param.f.longInteger = ~uint64_t{0};  // no value of any other member
    const std::string text = toString(hidl_vec<V4_0::KeyParameter>{param});
    EXPECT_EQ(text.find("[1]{{.tag = ALGORITHM, .f = {.algorithm = 0xffffffff"), 0U) << text;
}

// The HIDL and the C names were written down separately; their numbers must agree.
TEST(KeymasterTypes, AgreeWithTheRecords) {
    const std::pair<V4_1::Tag, keymaster_tag_t> tags[] = {
        {V4_1::Tag::INVALID, KM_TAG_INVALID},
        {V4_1::Tag::PURPOSE, KM_TAG_PURPOSE},
        {V4_1::Tag::RSA_PUBLIC_EXPONENT, KM_TAG_RSA_PUBLIC_EXPONENT},
        {V4_1::Tag::EARLY_BOOT_ONLY, KM_TAG_EARLY_BOOT_ONLY},
        {V4_1::Tag::USER_SECURE_ID, KM_TAG_USER_SECURE_ID},
        {V4_1::Tag::APPLICATION_ID, KM_TAG_APPLICATION_ID},
        {V4_1::Tag::BOOT_PATCHLEVEL, KM_TAG_BOOT_PATCHLEVEL},
        {V4_1::Tag::CONFIRMATION_TOKEN, KM_TAG_CONFIRMATION_TOKEN},
    };
    for (const auto& [tag, record] : tags) {
        EXPECT_EQ(static_cast<uint32_t>(tag), static_cast<uint32_t>(record)) << toString(tag);
    }
    EXPECT_EQ(int64_t{KM_TAG_APPLICATION_ID}, -1879047591) << "tags are signed in C";
    EXPECT_EQ(static_cast<uint32_t>(KM_TAG_AUTH_TOKEN), 0x900003EA);

    EXPECT_EQ(hidl_enum_range<V4_0::Tag>().end() - hidl_enum_range<V4_0::Tag>().begin(), 55);
    EXPECT_EQ(hidl_enum_range<V4_1::Tag>().end() - hidl_enum_range<V4_1::Tag>().begin(), 59);
    EXPECT_EQ(hidl_enum_range<V4_1::ErrorCode>().end() - hidl_enum_range<V4_1::ErrorCode>().begin(),
              79);
    EXPECT_EQ(V4_0::TagType::BYTES | 601U, static_cast<uint32_t>(V4_0::Tag::APPLICATION_ID));
}

}  // namespace
