// What happens to keys from boot to boot: versions, upgrades, deletion, and the calls that set the
// boot's terms.
#include "Device.h"

namespace lumo::test {
namespace {

ParamSet versions(uint64_t os, uint64_t patch, uint64_t vendor) {
    return {intParam(KM_TAG_OS_VERSION, os), intParam(KM_TAG_OS_PATCHLEVEL, patch),
            intParam(KM_TAG_VENDOR_PATCHLEVEL, vendor)};
}

TEST(Versions, DecideWhetherAKeyMayBeUsedAndUpgraded) {
    enum Outcome { kCurrent, kUpgrades, kRefused };
    struct Case {
        uint64_t versions[3];  // OS, its patch level, the vendor's
        uint32_t boot_patchlevel;
        Outcome outcome;
    };
    const Case cases[] = {
        {{110000, 202012, 20201105}, 20201205, kCurrent},
        {{120000, 202012, 20201105}, 20201205, kUpgrades},
        {{100000, 202012, 20201105}, 20201205, kRefused},
        {{0, 202012, 20201105}, 20201205, kUpgrades},  // a system in development
        {{0, 202011, 20201105}, 20201205, kRefused},
        {{110000, 202101, 20201105}, 20201205, kUpgrades},
        {{110000, 202011, 20201105}, 20201205, kRefused},
        {{110000, 202012, 20201106}, 20201205, kUpgrades},
        {{110000, 202012, 20201104}, 20201205, kRefused},
        {{110000, 202012, 202011}, 20201205, kRefused},  // none
        {{110000, 202012, 20201105}, 20210101, kUpgrades},
        {{110000, 202012, 20201105}, 20201201, kRefused},
    };
    for (const uint64_t version : {kBlobVersion4_0, kBlobVersion4_1}) {
        for (const Case& each : cases) {
            SCOPED_TRACE(&each - cases);
            Device device;
            device.options.blob_version = version;
            device.boot();
            const ParamSet binding = {bytesParam(KM_TAG_APPLICATION_ID, Bytes{1})};
            const Bytes blob = device->generateKey(with(ecKey(), binding));
            const OpenedKey before = device->characteristics(blob, binding);
            device.hal = versions(each.versions[0], each.versions[1], each.versions[2]);
            device.world.boot_patchlevel = each.boot_patchlevel;
            device.boot();

            const auto sign = [&] {
                device->begin(KM_PURPOSE_SIGN, blob, with(sha256Digest(), binding));
            };
            const auto use_error =
                each.outcome == kCurrent ? KM_ERROR_OK : KM_ERROR_KEY_REQUIRES_UPGRADE;
            EXPECT_EQ(errorOf(sign), use_error);
            EXPECT_EQ(errorOf([&] { device->characteristics(blob, binding); }), use_error);
            EXPECT_EQ(errorOf([&] { device->exportKey(KM_KEY_FORMAT_X509, blob, binding); }),
                      use_error);
            EXPECT_EQ(errorOf([&] { device->upgradeKey(blob, {}); }), KM_ERROR_INVALID_KEY_BLOB);
            Bytes upgraded;
            EXPECT_EQ(errorOf([&] { upgraded = device->upgradeKey(blob, binding); }),
                      each.outcome == kRefused ? KM_ERROR_INVALID_ARGUMENT : KM_ERROR_OK);
            EXPECT_EQ(!upgraded.empty(), each.outcome == kUpgrades);
            if (each.outcome != kUpgrades) continue;
            EXPECT_TRUE(device->upgradeKey(upgraded, binding).empty());
            const OpenedKey after = device->characteristics(upgraded, binding);
            EXPECT_EQ(after.id, before.id);
            EXPECT_EQ(after.material, before.material);
            EXPECT_EQ(after.all().size(), before.all().size());
            EXPECT_EQ(after.hardware.integer(KM_TAG_OS_VERSION), each.versions[0]);
        }
    }
}

TEST(Versions, AnAbsentPatchLevelIsAnOldOne) {
    Device device;
    device.world.boot_patchlevel = 0;
    device.boot();
    const Bytes blob = device->generateKey(aesKey());
    EXPECT_FALSE(device->characteristics(blob, {}).all().contains(KM_TAG_BOOT_PATCHLEVEL));
    device.world.boot_patchlevel = 20210101;
    device.boot();
    EXPECT_EQ(errorOf([&] { device->characteristics(blob, {}); }), KM_ERROR_KEY_REQUIRES_UPGRADE);
    const OpenedKey after = device->characteristics(device->upgradeKey(blob, {}), {});
    EXPECT_TRUE(after.hardware.contains(KM_TAG_BOOT_PATCHLEVEL, 20210101));
}

// An upgrade also brings an old blob to the present layout.
TEST(Versions, UpgradesOldBlobs) {
    Device device;
    device.options.blob_version = kBlobVersion3_0;
    device.world.rollback_resistance = true;
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
    EXPECT_TRUE(key.hardware.contains(KM_TAG_AUTH_TIMEOUT, 7));
    EXPECT_TRUE(key.hardware.contains(KM_TAG_ROLLBACK_RESISTANCE));
    EXPECT_TRUE(key.hardware.contains(KM_TAG_HARDWARE_TYPE, kTee));
    EXPECT_TRUE(key.software.contains(KM_TAG_UNLOCKED_DEVICE_REQUIRED));
    EXPECT_TRUE(key.sealed.empty());
    // What is kept track of can tell the two apart.
    EXPECT_EQ(errorOf([&] { device->upgradeKey(old, {}); }), KM_ERROR_INVALID_KEY_BLOB);
}

TEST(Versions, EarlyBootKeysTakeTheVersionThatReportsThem) {
    struct Case {
        uint64_t version;
        bool allowed;
        uint64_t result;
    };
    const Case cases[] = {{kBlobVersion4_1, true, kBlobVersion4_4},
                          {kBlobVersion4_1, false, kBlobVersion4_1},
                          {kBlobVersion4_0, true, kBlobVersion4_0}};
    for (const Case& each : cases) {
        Device device;
        device.options.blob_version = each.version;
        device.options.early_boot_blobs = each.allowed;
        device.boot();
        const Bytes blob = device->generateKey(with(aesKey(), {boolParam(KM_TAG_EARLY_BOOT_ONLY)}));
        device->earlyBootEnded();
        // Looking at it stays possible.
        const OpenedKey key = device->characteristics(blob, {});
        EXPECT_EQ(key.version, each.result);
        EXPECT_EQ(key.hardware.contains(KM_TAG_EARLY_BOOT_ONLY), key.version == kBlobVersion4_4);
        EXPECT_EQ(errorOf([&] { device->begin(KM_PURPOSE_ENCRYPT, blob, ecb()); }),
                  KM_ERROR_EARLY_BOOT_ENDED);
    }
}

TEST(Deletion, IsForGoodWithRollbackResistance) {
    Device device;
    device.world.rollback_resistance = true;
    device.boot();
    const ParamSet bound = {bytesParam(KM_TAG_APPLICATION_ID, Bytes{1})};
    const ParamSet resistant = with(aesKey(), {boolParam(KM_TAG_ROLLBACK_RESISTANCE)});
    const auto open = [&](const Bytes& blob, const ParamSet& binding = {}) {
        return errorOf([&] { device->characteristics(blob, binding); });
    };
    const Bytes plain = device->generateKey(aesKey());
    const Bytes first = device->generateKey(resistant);
    const Bytes second = device->generateKey(with(resistant, bound));
    const Bytes third = device->generateKey(resistant);
    EXPECT_TRUE(device->characteristics(first, {}).hardware.contains(KM_TAG_ROLLBACK_RESISTANCE));

    for (const Bytes& blob : {Bytes(), Bytes{1, 2, 3}, plain, second, second}) {
        EXPECT_EQ(errorOf([&] { device->deleteKey(blob); }), KM_ERROR_OK);
    }
    for (int boots = 0; boots < 2; ++boots) {
        EXPECT_EQ(open(plain), KM_ERROR_OK);
        EXPECT_EQ(open(first), KM_ERROR_OK);
        EXPECT_EQ(open(second, bound), KM_ERROR_INVALID_KEY_BLOB);
        device.boot();
    }
    device->deleteAllKeys();
    device.boot();
    EXPECT_EQ(open(first), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(open(third), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(open(plain), KM_ERROR_OK);
    EXPECT_EQ(open(device->generateKey(resistant)), KM_ERROR_OK);
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
        device.world.vendor_patchlevel = each.from_world;
        device.hal = versions(110000, 202012, each.from_hal);
        device.boot();
        const OpenedKey key = device->characteristics(device->generateKey(aesKey()), {});
        EXPECT_EQ(key.hardware.integer(KM_TAG_VENDOR_PATCHLEVEL), each.result);
    }
}

TEST(RootOfTrust, IsSetOnceBeforeAnyKeyIsUsed) {
    Device device;
    const Bytes boot_key(32, 0xAA);
    device->setRootOfTrust(boot_key);
    device->setBootState(true, 2, 0, 0);  // yellow
    EXPECT_EQ(device->world().verified_boot_key, boot_key);
    EXPECT_TRUE(device->world().device_locked);
    EXPECT_EQ(device->world().verified_boot_state, 1U);
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
        EXPECT_EQ(other->world().verified_boot_state, state);
    }
    EXPECT_EQ(errorOf([&] { device->setBootState(true, 4, 0, 0); }), KM_ERROR_INVALID_ARGUMENT);
    device->setBootState(true, 3, 0, 0);
    EXPECT_EQ(errorOf([&] { device->characteristics(blob, {}); }), KM_ERROR_OK);
}

TEST(Services, EntropyTokensAndDeviceIds) {
    Device tee(kTee);
    Device strongbox(kStrongBox);
    tee->addEntropy(Bytes(2048, 1));
    tee->addEntropy({});
    EXPECT_EQ(tee.random.mixed, 2048U);
    EXPECT_EQ(errorOf([&] { tee->addEntropy(Bytes(2049, 1)); }), KM_ERROR_INVALID_INPUT_LENGTH);

    const VerificationToken token = tee->verifyAuthorization(7);
    EXPECT_EQ(token.challenge, 7U);
    EXPECT_EQ(token.timestamp, tee.clock.boot);
    EXPECT_EQ(token.security_level, 1U);
    EXPECT_EQ(token.mac.size(), 32U);
    EXPECT_EQ(errorOf([&] { strongbox->verifyAuthorization(7); }), KM_ERROR_UNIMPLEMENTED);

    tee->destroyDeviceIds();
    EXPECT_EQ(tee.state.records.count("ids-destroyed"), 1U);
}

}  // namespace
}  // namespace lumo::test
