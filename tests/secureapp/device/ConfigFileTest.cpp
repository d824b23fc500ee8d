#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Folder.h"
#include "secureapp/device/ConfigFile.h"
#include "secureapp/device/Device.h"
#include "secureapp/device/FileState.h"

namespace lumo::secureapp {
namespace {

using test::Folder;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(ConfigFile, FirstStartWritesTheDefaults) {
    const Folder folder;
    const DeviceConfig defaults;
    const DeviceConfig loaded = loadDeviceConfig(folder.path()).config;
    EXPECT_EQ(loaded.vendor_patchlevel, defaults.vendor_patchlevel);
    EXPECT_EQ(loaded.boot_patchlevel, defaults.boot_patchlevel);
    EXPECT_EQ(loaded.verified_boot_key, defaults.verified_boot_key);
    EXPECT_EQ(loaded.verified_boot_hash, defaults.verified_boot_hash);
    EXPECT_FALSE(loaded.device_locked || loaded.user_presence || loaded.test_attestation_keys);

    // What stands there from then on counts.
    const std::string changed = "device_locked = yes\n";
    writePrivateFile(folder / kConfigFileName, Bytes(changed.begin(), changed.end()));
    EXPECT_TRUE(loadDeviceConfig(folder.path()).config.device_locked);
}

TEST(ConfigFile, ReadsEveryKey) {
    const DeviceSettings settings = parseDeviceConfig(
        "# a comment\n\n  vendor_patchlevel=20210105\nboot_patchlevel =\n"
        "verified_boot_key = 1111111111111111111111111111111111111111111111111111111111111111\n"
        "device_locked = yes\nverified_boot_state = self-signed\n"
        "verified_boot_hash = AAaaAAaaAAaaAAaaAAaaAAaaAAaaAAaaAAaaAAaaAAaaAAaaAAaaAAaaAAaaAAaa\n"
        "brand = A = B\ndevice = d\nproduct = p\nserial = 1\nimei = 2\nmeid = 3\n"
        "manufacturer = m\r\nmodel =  n o \nrollback_resistance = yes\nuser_presence = yes\n"
        "test_attestation_keys = yes\nfixed_time = 1600000000000\nrandom_seed = 00ff",
        "f");
    const DeviceConfig& config = settings.config;
    EXPECT_EQ(config.vendor_patchlevel, 20210105U);
    EXPECT_EQ(config.boot_patchlevel, std::nullopt);
    EXPECT_EQ(config.verified_boot_key, Bytes(32, 0x11));
    EXPECT_EQ(config.verified_boot_hash, Bytes(32, 0xAA));
    EXPECT_EQ(config.verified_boot_state, 1U);
    EXPECT_TRUE(config.device_locked && config.rollback_resistance && config.user_presence &&
                config.test_attestation_keys);
    EXPECT_EQ(config.device_ids.size(), 8U);
    EXPECT_EQ(config.device_ids.at(KM_TAG_ATTESTATION_ID_BRAND), (Bytes{'A', ' ', '=', ' ', 'B'}));
    EXPECT_EQ(config.device_ids.at(KM_TAG_ATTESTATION_ID_MODEL), (Bytes{'n', ' ', 'o'}));
    EXPECT_EQ(settings.fixed_time, 1600000000000U);
    EXPECT_EQ(settings.random_seed, (Bytes{0x00, 0xFF}));
}

TEST(ConfigFile, NamesTheLineThatItCannotRead) {
    const std::pair<const char*, const char*> cases[] = {
        {"devise_locked = yes", "devise_locked"},
        {"device_locked", "key = value"},
        {"device_locked = true", "yes or no"},
        {"boot_patchlevel = 202012", "YYYYMMDD"},
        {"boot_patchlevel = 20201301", "YYYYMMDD"},
        {"verified_boot_key = 11", "64 hexadecimal digits"},
        {"verified_boot_hash = zz", "hexadecimal digits"},
        {"verified_boot_state = green", "verified, self-signed"},
        {"fixed_time = -1", "a number"},
        {"# twice\nuser_presence = no\nuser_presence = no", "only once"},
    };
    for (const auto& [text, expected] : cases) {
        try {
            parseDeviceConfig(std::string("\n") + text, "/w/world.conf");
            ADD_FAILURE() << text;
        } catch (const StateError& error) {
            EXPECT_THAT(error.what(), StartsWith("/w/world.conf, line "));
            EXPECT_THAT(error.what(), HasSubstr(expected));
        }
    }
}

TEST(Device, FixedSeedAndTimeMakeRunsAlike) {
    const std::string fixed = "random_seed = 01\nfixed_time = 1600000000000\n";
    Bytes nonces[3];
    for (size_t run = 0; run < 3; ++run) {
        const Folder folder;
        if (run < 2) {
            writePrivateFile(folder / kConfigFileName, Bytes(fixed.begin(), fixed.end()));
        }
        Device device({folder.path(), findProfile("cbor"), false});
        SecureApp& app = device.app(KM_SECURITY_LEVEL_STRONGBOX);
        EXPECT_EQ(&app, &device.app(KM_SECURITY_LEVEL_STRONGBOX));
        EXPECT_NE(&app, &device.app(KM_SECURITY_LEVEL_SOFTWARE));
        nonces[run] = app.keymaster().hmacSharingParameters().nonce;
    }
    EXPECT_EQ(nonces[0], nonces[1]);
    EXPECT_NE(nonces[0], nonces[2]);
}

TEST(HostRandom, MixingAddsAndNeverRepeats) {
    const Bytes seed = {1};
    HostRandom plain(seed), mixed(seed), unseeded;
    EXPECT_EQ(plain.bytes(100), mixed.bytes(100));
    mixed.mix(seed);
    EXPECT_NE(plain.bytes(100), mixed.bytes(100));
    EXPECT_NE(unseeded.bytes(32), unseeded.bytes(32));
    EXPECT_EQ(unseeded.bytes(33).size(), 33U);
}

}  // namespace
}  // namespace lumo::secureapp
