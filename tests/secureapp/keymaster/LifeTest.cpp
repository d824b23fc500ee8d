// What happens to keys from boot to boot, and the calls that set the boot's terms.
#include "KeymasterUnderTest.h"
#include "secureapp/keys/KeymasterOptions.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::test {
namespace {

ParamSet versions(uint64_t os, uint64_t patch, uint64_t vendor) {
    return {intParam(KM_TAG_OS_VERSION, os), intParam(KM_TAG_OS_PATCHLEVEL, patch),
            intParam(kTagVendorPatchlevel, vendor)};
}

TEST(Versions, AnAbsentPatchLevelIsAnOldOne) {
    Device device;
    device.config.boot_patchlevel = 0;
    device.boot();
    const Bytes blob = device->generateKey(aesKey());
    EXPECT_FALSE(device->characteristics(blob, {}).authorizations.contains(kTagBootPatchlevel));
    device.config.boot_patchlevel = 20210101;
    device.boot();
    EXPECT_EQ(errorOf([&] { device->characteristics(blob, {}); }), KM_ERROR_KEY_REQUIRES_UPGRADE);
    const OpenedKey after = device->characteristics(device->upgradeKey(blob, {}), {});
    EXPECT_TRUE(after.hardware().contains(kTagBootPatchlevel, 20210101));
}

// Upgrading is no advice where it would be refused.
TEST(Versions, ThatDifferAreNamed) {
    Device device;
    const Bytes blob = device->generateKey(aesKey());
    const auto use = [&] { device->begin(KM_PURPOSE_ENCRYPT, blob, ecb()); };
    device.hal = versions(110000, 202103, 20201105);
    device.boot();
    EXPECT_EQ(reasonOf(use).find("; "), std::string::npos) << reasonOf(use);
    device.hal = versions(120000, 202012, 20201001);
    device.boot();
    const std::string newer = "key has vendor patch level 20201105, device has 20201001";
    EXPECT_EQ(reasonOf(use).find(newer + "; a newer key opens only once"), 0U);
    EXPECT_NE(reasonOf([&] { device->upgradeKey(blob, {}); }).find(newer), std::string::npos);
}

// An upgrade also brings an old blob to the present layout.
TEST(Versions, UpgradesOldBlobs) {
    Device device;
    device.options.blob_version = kBlobVersion3_0;
    device.config.rollback_resistance = true;
    device.boot();
    const ParamSet params =
        with(aesKey(), {intParam(KM_TAG_AUTH_TIMEOUT, 7), boolParam(KM_TAG_ROLLBACK_RESISTANCE),
                        boolParam(KM_TAG_UNLOCKED_DEVICE_REQUIRED)});
    const Bytes old = device->generateKey(params);
    device.options.blob_version = kBlobVersion4_1;
    device.hal = versions(120000, 202012, 20201105);
    device.boot();
    const Bytes blob = device->upgradeKey(old, {});
    const OpenedKey key = device->characteristics(blob, {});
    EXPECT_EQ(key.version, kBlobVersion4_1);
    EXPECT_TRUE(key.hardware().contains(KM_TAG_AUTH_TIMEOUT, 7));
    EXPECT_TRUE(key.hardware().contains(KM_TAG_ROLLBACK_RESISTANCE));
    EXPECT_TRUE(key.hardware().contains(kTagHardwareType, kTee));
    EXPECT_TRUE(key.software().contains(KM_TAG_UNLOCKED_DEVICE_REQUIRED));
    EXPECT_TRUE(key.unreported().empty());
}

TEST(Rollback, UpgradesLoseNoKeyAndDeletedOnesStayDeleted) {
    Device device;
    device.config.rollback_resistance = true;
    device.boot();
    const ParamSet params = with(aesKey(), {boolParam(KM_TAG_ROLLBACK_RESISTANCE)});
    const Bytes old = device->generateKey(params);
    EXPECT_EQ(device.state.records["rollback-registry"].size(), 32U);
    const auto upgrade = [&](const Bytes& blob) {
        return errorOf([&] { device->upgradeKey(blob, {}); });
    };
    const auto use = [&](const Bytes& blob) {
        return errorOf([&] { device->begin(KM_PURPOSE_ENCRYPT, blob, ecb()); });
    };
    device.hal = versions(120000, 202012, 20201105);
    device.boot();
    const Bytes lost = device->upgradeKey(old, {});
    const Bytes stored = device->upgradeKey(old, {});  // nobody has the first one
    EXPECT_EQ(use(stored), KM_ERROR_OK);
    EXPECT_EQ(upgrade(old), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(use(lost), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(device.state.records["rollback-registry"].size(), 32U);

    device.hal = versions(130000, 202012, 20201105);
    device.boot();
    const Bytes newest = device->upgradeKey(stored, {});
    device->deleteKey(stored);
    EXPECT_EQ(use(newest), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(upgrade(stored), KM_ERROR_INVALID_KEY_BLOB);

    device.state.records["rollback-registry"].resize(16 << 20);
    EXPECT_EQ(errorOf([&] { device->generateKey(params); }),
              KM_ERROR_ROLLBACK_RESISTANCE_UNAVAILABLE);
    device->deleteAllKeys();
    EXPECT_EQ(use(device->generateKey(params)), KM_ERROR_OK);
}

TEST(Configuration, ComesOnceAndFirst) {
    Device device;
    const Bytes blob = device->generateKey(aesKey());
    device.bootUnconfigured();
    const std::vector<std::function<void()>> calls = {
        [&] { device->generateKey(aesKey()); },
        [&] { device->importKey(aesKey(), KM_KEY_FORMAT_RAW, Bytes(16, 0)); },
        [&] { device->begin(KM_PURPOSE_ENCRYPT, blob, ecb()); },
        [&] { device->upgradeKey(blob, {}); },
        [&] { device->deleteKey(blob); },
        [&] { device->addEntropy({}); },
        [&] { device->abort(1); },
        [&] { device->verifyAuthorization(1); },
    };
    for (const auto& call : calls) {
        EXPECT_EQ(errorOf(call), KM_ERROR_KEYMASTER_NOT_CONFIGURED) << &call - calls.data();
    }
    EXPECT_EQ(errorOf([&] { device->computeSharedHmac({device->hmacSharingParameters()}); }),
              KM_ERROR_OK);
    const auto configure = [&](const ParamSet& params) {
        return errorOf([&] { device->configure(params); });
    };
    EXPECT_EQ(configure({intParam(KM_TAG_OS_VERSION, 1)}), KM_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(configure(device.hal), KM_ERROR_OK);
    EXPECT_EQ(configure(device.hal), KM_ERROR_OK);
    EXPECT_EQ(configure(versions(110000, 202012, 20201106)), KM_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(errorOf([&] { device->characteristics(blob, {}); }), KM_ERROR_OK);
}

TEST(Configuration, AcceptsEntropy) {
    Device device;
    device->addEntropy(Bytes(2048, 1));
    device->addEntropy({});
    EXPECT_EQ(device.random.mixed, 2048U);
    EXPECT_EQ(errorOf([&] { device->addEntropy(Bytes(2049, 1)); }), KM_ERROR_INVALID_INPUT_LENGTH);
}

TEST(Configuration, TakesOnlyDatesForPatchLevels) {
    struct Case {
        uint64_t from_hal;
        std::optional<uint32_t> from_world;
        std::optional<uint64_t> result;
    };
    const Case cases[] = {
        {20201105, std::nullopt, 20201105},     {20201105, 20210203, 20210203},
        {202011, std::nullopt, std::nullopt},   {0, std::nullopt, std::nullopt},
        {20201305, std::nullopt, std::nullopt}, {20201100, std::nullopt, 20201100}};
    for (const Case& each : cases) {
        Device device;
        device.config.vendor_patchlevel = each.from_world;
        device.hal = versions(110000, 202012, each.from_hal);
        device.boot();
        const OpenedKey key = device->characteristics(device->generateKey(aesKey()), {});
        EXPECT_EQ(key.hardware().integer(kTagVendorPatchlevel), each.result);
    }
}

TEST(RootOfTrust, IsSetOnceBeforeAnyKeyIsUsed) {
    Device device;
    const Bytes boot_key(32, 0xAA);
    device->setRootOfTrust(boot_key);
    device->setBootState(true, 2, 0, 0);  // yellow
    EXPECT_EQ(device->config().verified_boot_key, boot_key);
    EXPECT_TRUE(device->config().device_locked);
    EXPECT_EQ(device->config().verified_boot_state, 1U);
    const auto again = [&] { return errorOf([&] { device->setRootOfTrust(boot_key); }); };
    EXPECT_EQ(again(), KM_ERROR_ROOT_OF_TRUST_ALREADY_SET);
    EXPECT_EQ(errorOf([&] { device->setBootState(true, 0, 0, 0); }),
              KM_ERROR_ROOT_OF_TRUST_ALREADY_SET);
    const Bytes blob = device->generateKey(aesKey());

    device.boot();
    EXPECT_EQ(errorOf([&] { device->characteristics(blob, {}); }), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(again(), KM_ERROR_ROOT_OF_TRUST_ALREADY_SET);  // a key was looked at
    device.boot();
    device->setRootOfTrust(boot_key);
    for (const auto& [color, state] : {std::pair(0U, 0U), {1U, 2U}, {2U, 1U}, {3U, 3U}}) {
        Device other;
        other->setBootState(true, color, 0, 0);
        EXPECT_EQ(other->config().verified_boot_state, state);
    }
    EXPECT_EQ(errorOf([&] { device->setBootState(true, 4, 0, 0); }), KM_ERROR_INVALID_ARGUMENT);
    device->setBootState(true, 3, 0, 0);
    EXPECT_EQ(errorOf([&] { device->characteristics(blob, {}); }), KM_ERROR_OK);
}

}  // namespace
}  // namespace lumo::test
