#include <Keymaster4Device.h>

#include "ServiceMethods.h"

namespace {

using namespace ::lumo::test;
using ::keymaster::V4_0::CreateKeymasterDevice;
using ::keymaster::V4_0::CreateSbKeymasterDevice;
using ::keymaster::V4_0::Keymaster4Device;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

const hidl_vec<uint8_t> kBlob = {1, 2, 3};
const hidl_vec<uint8_t> kNone;

class Keymaster4DeviceTest : public ServiceTest {
  protected:
    sp<IKeymasterDevice> start() { return ServiceTest::start(CreateKeymasterDevice); }
};

using StartUp = Keymaster4DeviceTest;

// ---- Start-up ----

constexpr char kConfigure[] =
    "a4 16 03 1a300002c1 1a0001adb0 1a300002c2 1a0003151c 1a300002ce";  // and the vendor's value

TEST_F(StartUp, AsksForDatesAndConfigures) {
    const struct {
        IKeymasterDevice* (*create)();
        keymaster_security_level_t level;
        uint32_t date_status;
        const char* vendor_patchlevel;
    } cases[] = {
        {CreateKeymasterDevice, KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, 0, "1a01343ef1"},
        {CreateSbKeymasterDevice, KM_SECURITY_LEVEL_STRONGBOX, 0, "1a01343ef1"},
        {CreateKeymasterDevice, KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT,
         static_cast<uint32_t>(KM_ERROR_INVALID_TAG), "1a0003151c"},
    };
    for (const auto& c : cases) {
        transport.reset(0xEE);
        transport.willReply(words({c.date_status}));
        transport.willReply(hex("ff"));  // what is answered to configure does not matter
        const sp<IKeymasterDevice> device = c.create();
        EXPECT_EQ(transport.level, c.level);
        EXPECT_EQ(transport.callNames(),
                  "vaultlink_dev_init send_cmd isLegacy hsm_init init sendCmd");
        EXPECT_EQ(toHex(transport.calls[1].request), "15020000eeeeeeeeeeeeeeee");
        EXPECT_EQ(transport.calls[5].command_id, 0x2116U);
        EXPECT_EQ(toHex(transport.calls[5].request),
                  toHex(hex(std::string(kConfigure) + c.vendor_patchlevel)));
    }
}

TEST_F(StartUp, UnreadableVersionsAreSentAsZero) {
    setProperty("ro.build.version.release", "R");
    setProperty("ro.build.version.security_patch", "yesterday");
    setProperty("ro.vendor.build.security_patch", "2020-13-01");
    transport.willReply(words({0}));
    const sp<IKeymasterDevice> device = CreateKeymasterDevice();
    EXPECT_EQ(toHex(transport.lastSent().request),
              toHex(hex("a4 16 03 1a300002c1 00 1a300002c2 00 1a300002ce 00")));
}

TEST_F(StartUp, LegacyConfiguration) {
    transport.legacy = true;
    transport.willReply(words({0}));
    transport.willReply(words({0}));
    const sp<IKeymasterDevice> device = CreateKeymasterDevice();
    constexpr uint32_t kStale = 0xFFFFFFFF;
    EXPECT_EQ(transport.lastSent().request,
              words({0x116, 12, 3, 0x300002C1, 110000, kStale, 0x300002C2, 202012, kStale,
                     0x300002CE, 20201201, kStale}));
}

using StartUpDeathTest = Keymaster4DeviceTest;

TEST_F(StartUpDeathTest, PropertyMissing) {
    // In the order in which they are waited for; the first that is missing ends it.
    const std::string names[] = {"ro.build.version.security_patch",
                                 "ro.vendor.build.security_patch", "ro.build.version.release"};
    for (size_t i = 0; i < std::size(names); ++i) {
        const auto run = [&] {
            for (size_t missing = i; missing < std::size(names); ++missing) {
                setProperty(names[missing], "");
            }
            CreateKeymasterDevice();
        };
        const std::string later = i + 1 < std::size(names) ? names[i + 1] : "date_support";
        EXPECT_DEATH(run(), AllOf(HasSubstr("the property " + names[i] + " does not exist"),
                                  HasSubstr("Android property not present"), Not(HasSubstr(later)),
                                  HasSubstr("android.hardware.keymaster@4.0-impl")));
    }
}

TEST_F(StartUpDeathTest, SecureApplicationRefuses) {
    const auto run = [&](TransportReply date, TransportReply configure) {
        transport.replies = {std::move(date), std::move(configure)};
        CreateKeymasterDevice();
    };
    const Bytes good = words({0});
    EXPECT_DEATH(run({-5, good}, {}), "get_date_support failed");
    EXPECT_DEATH(run({0, words({static_cast<uint32_t>(-39)})}, {}), "get_date_support failed");
    EXPECT_DEATH(run({0, good}, {-5, {}}), "Configure failed");
}

// ---- Every method ----

TEST_F(Keymaster4DeviceTest, EveryMethodReachesTheTransport) {
    expectEveryMethodReachesTheTransport(*start(), false);
    expectEveryMethodReachesTheTransport(*ServiceTest::start(CreateSbKeymasterDevice), true);
}

TEST_F(Keymaster4DeviceTest, HardwareInfoByLevel) {
    const struct {
        keymaster_security_level_t level;
        int calls;
        SecurityLevel told;
    } cases[] = {
        {KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, 1, SecurityLevel::TRUSTED_ENVIRONMENT},
        {KM_SECURITY_LEVEL_STRONGBOX, 1, SecurityLevel::STRONGBOX},
        {KM_SECURITY_LEVEL_SOFTWARE, 0, {}},
        {static_cast<keymaster_security_level_t>(3), 0, {}},
    };
    for (const auto& c : cases) {
        transport.reset();
        transport.keymaster_version = 4000000001;
        transport.willReply(words({0}));
        const sp<IKeymasterDevice> device = new Keymaster4Device(c.level);
        int calls = 0;
        const auto result =
            device->getHardwareInfo([&](SecurityLevel level, const auto& name, const auto& author) {
                ++calls;
                EXPECT_EQ(level, c.told);
                EXPECT_EQ(std::string(name), "Keymaster HAL: 4000000001");
                EXPECT_EQ(std::string(author), "LUMO");
            });
        EXPECT_TRUE(result.isOk());
        EXPECT_EQ(calls, c.calls);
    }
}

TEST_F(Keymaster4DeviceTest, EntropyIsAcceptedAndIgnored) {
    const auto device = start();
    for (const uint32_t size : {0U, 5U, 1U << 20}) {
        EXPECT_EQ(ErrorCode(device->addRngEntropy(Bytes(size))), ErrorCode::OK);
    }
    EXPECT_EQ(transport.callNames(), "");
}

TEST_F(Keymaster4DeviceTest, EmptyInputsAreMissingOnes) {
    const auto device = start();
    const auto params = hidl_vec<KeyParameter>{integerParam(Tag::DIGEST, 4)};
    const std::function<void(Answer&)> calls[] = {
        [&](Answer& a) { device->importKey(params, KeyFormat::RAW, kNone, std::ref(a)); },
        [&](Answer& a) { device->getKeyCharacteristics(kNone, kBlob, kBlob, std::ref(a)); },
        [&](Answer& a) { device->exportKey(KeyFormat::X509, kNone, kNone, kNone, std::ref(a)); },
        [&](Answer& a) { device->attestKey(kNone, params, std::ref(a)); },
        [&](Answer& a) { device->upgradeKey(kNone, params, std::ref(a)); },
        [&](Answer& a) { device->upgradeKey(kBlob, {}, std::ref(a)); },
        [&](Answer& a) { device->begin(KeyPurpose::SIGN, kNone, {}, {}, std::ref(a)); },
    };
    for (const auto& call : calls) {
        Answer answer;
        call(answer);
        EXPECT_EQ(answer.error, ErrorCode::UNEXPECTED_NULL_POINTER);
        EXPECT_EQ(answer.calls, 1);
        EXPECT_TRUE(answer.empty);
    }
    EXPECT_EQ(transport.sentCount(), 0U);

    device->exportKey(KeyFormat::PKCS8, kBlob, kNone, kNone, std::ref(*std::make_unique<Answer>()));
    EXPECT_EQ(transport.lastSent().request, hex("a3 1600 1743010203 181801"));
}

// ---- Keys ----

// The clear part of a key blob of version 4.0: an EC key without authentication, made at 77 ms.
Bytes keyBlob() {
    Bytes blob(395);
    const std::pair<size_t, uint8_t> fields[] = {
        {12, 4},  {24, 2},  {52, 1},  {53, 3},  // major version, hardware count, algorithm
        {239, 1},                               // no authentication required
        {273, 1}, {310, 1}, {311, 77}};         // software count, creation date
    for (const auto& [offset, value] : fields) blob[offset] = value;
    return blob;
}

Bytes keyBlobReply(const Bytes& blob) {
    return hex("a1 17 59018b") + blob;
}

void expectCharacteristics(const KeyCharacteristics& sets) {
    ASSERT_EQ(sets.hardwareEnforced.size(), 2U);
    EXPECT_EQ(sets.hardwareEnforced[0].tag, Tag::ALGORITHM);
    EXPECT_EQ(sets.hardwareEnforced[0].f.integer, 3U);
    EXPECT_EQ(sets.hardwareEnforced[1].tag, Tag::NO_AUTH_REQUIRED);
    EXPECT_TRUE(sets.hardwareEnforced[1].f.boolValue);
    ASSERT_EQ(sets.softwareEnforced.size(), 1U);
    EXPECT_EQ(sets.softwareEnforced[0].tag, Tag::CREATION_DATETIME);
    EXPECT_EQ(sets.softwareEnforced[0].f.longInteger, 77U);
}

TEST_F(Keymaster4DeviceTest, NewKeysComeWithTheirCharacteristics) {
    const auto device = start();
    int calls = 0;
    const auto expectKey = [&](ErrorCode error, const auto& blob, const auto& characteristics) {
        ++calls;
        EXPECT_EQ(error, ErrorCode::OK);
        EXPECT_EQ(toBytes(blob), keyBlob());
        expectCharacteristics(characteristics);
    };
    for (int i = 0; i < 3; ++i) transport.willReply(keyBlobReply(keyBlob()));
    device->generateKey({}, expectKey);
    device->importKey({}, KeyFormat::RAW, kBlob, expectKey);
    device->importWrappedKey(kBlob, kBlob, kBlob, {}, 0, 0, expectKey);
    EXPECT_EQ(calls, 3);

    // Read from the blob, without the secure application.
    transport.hsm_result = KM_ERROR_SECURE_HW_COMMUNICATION_FAILED;
    device->getKeyCharacteristics(keyBlob(), kNone, kNone, [&](ErrorCode error, const auto& sets) {
        ++calls;
        EXPECT_EQ(error, ErrorCode::OK);
        expectCharacteristics(sets);
    });
    EXPECT_EQ(calls, 4);
}

TEST_F(Keymaster4DeviceTest, NothingOfAKeyIsToldWhenItsBlobIsBad) {
    const auto device = start();
    Bytes blob = keyBlob();
    blob[273] = 2;  // announces one more software-enforced entry than it has
    transport.willReply(keyBlobReply(blob));
    Answer answer;
    device->generateKey({}, std::ref(answer));
    EXPECT_EQ(answer.error, ErrorCode::INVALID_ARGUMENT);
    EXPECT_TRUE(answer.empty);
}

TEST_F(Keymaster4DeviceTest, ExportedAndUpgradedBytes) {
    const auto device = start();
    std::vector<std::string> seen;
    const auto keep = [&](ErrorCode error, const auto& bytes) {
        EXPECT_EQ(error, ErrorCode::OK);
        seen.push_back(toHex(toBytes(bytes)));
    };
    transport.willReply(hex("a1 1824 43aabbcc"));
    device->exportKey(KeyFormat::X509, kBlob, kNone, kNone, keep);
    transport.willReply(hex("a1 17 42ddee"));
    device->upgradeKey(kBlob, {integerParam(Tag::OS_VERSION, 1)}, keep);
    EXPECT_THAT(seen, testing::ElementsAre("aabbcc", "ddee"));
}

TEST_F(Keymaster4DeviceTest, CertificateChains) {
    const auto device = start();
    const struct {
        const char* reply;
        bool good;
        std::vector<std::string> chain;
    } cases[] = {
        {"a3 182002 1821420102 18214103", true, {"0102", "03"}},
        {"a1 182000", true, {}},
        {"a2 182002 1821420102", false, {}},  // one is missing
    };
    for (const auto& c : cases) {
        transport.willReply(hex(c.reply));
        int calls = 0;
        device->attestKey(kBlob, {}, [&](ErrorCode error, const auto& chain) {
            ++calls;
            EXPECT_EQ(error == ErrorCode::OK, c.good);
            std::vector<std::string> certificates;
            for (const auto& one : chain) certificates.push_back(toHex(toBytes(one)));
            EXPECT_EQ(certificates, c.chain);
        });
        EXPECT_EQ(calls, 1);
    }
}

TEST_F(Keymaster4DeviceTest, LegacyCertificateChains) {
    transport.legacy = true;
    const auto device = start();
    transport.willReply(words({0, 0, 20, 0, 1, 8, 2}) + hex("0102"));
    int calls = 0;
    device->attestKey(kBlob, {}, [&](ErrorCode error, const auto& chain) {
        ++calls;
        EXPECT_EQ(error, ErrorCode::OK);
        ASSERT_EQ(chain.size(), 1U);
        EXPECT_EQ(toBytes(chain[0]), hex("0102"));
    });
    transport.willReply(words({static_cast<uint32_t>(KM_ERROR_ATTESTATION_KEYS_NOT_PROVISIONED)}));
    Answer answer;
    device->attestKey(kBlob, {}, std::ref(answer));
    EXPECT_EQ(calls + answer.calls, 2);
    EXPECT_EQ(answer.error, ErrorCode{KM_ERROR_ATTESTATION_KEYS_NOT_PROVISIONED});
    EXPECT_TRUE(answer.empty);
}

// ---- Operations ----

void expectNonce(const hidl_vec<KeyParameter>& params) {
    ASSERT_EQ(params.size(), 1U);
    EXPECT_EQ(params[0].tag, Tag::NONCE);
    EXPECT_EQ(toBytes(params[0].blob), hex("aabb"));
}

TEST_F(Keymaster4DeviceTest, OperationResults) {
    const auto device = start();
    int calls = 0;
    transport.willReply(hex("a3 1601 1a900003e9 42aabb 1822 1b8877665544332211"));
    device->begin(KeyPurpose::ENCRYPT, kBlob, {}, {}, [&](auto error, auto& params, auto handle) {
        ++calls;
        EXPECT_EQ(error, ErrorCode::OK);
        expectNonce(params);
        EXPECT_EQ(handle, 0x8877665544332211);
    });
    transport.willReply(hex("a4 1601 1a900003e9 42aabb 1824 43010203 1825 05"));
    device->update(1, {}, kBlob, {}, {}, [&](auto error, auto consumed, auto& params, auto& out) {
        ++calls;
        EXPECT_EQ(error, ErrorCode::OK);
        EXPECT_EQ(consumed, 5U);
        expectNonce(params);
        EXPECT_EQ(toBytes(out), hex("010203"));
    });
    transport.willReply(hex("a3 1601 1a900003e9 42aabb 1824 43040506"));
    device->finish(1, {}, kBlob, {}, {}, {}, [&](auto error, auto& params, auto& out) {
        ++calls;
        EXPECT_EQ(error, ErrorCode::OK);
        expectNonce(params);
        EXPECT_EQ(toBytes(out), hex("040506"));
    });
    EXPECT_EQ(calls, 3);
}

// Whatever had been decoded before the fault is neither told nor kept.
TEST_F(Keymaster4DeviceTest, BrokenOperationResults) {
    const auto device = start();
    const std::function<void(Answer&)> calls[] = {
        [&](Answer& a) { device->begin(KeyPurpose::SIGN, kBlob, {}, {}, std::ref(a)); },
        [&](Answer& a) { device->update(1, {}, kBlob, {}, {}, std::ref(a)); },
        [&](Answer& a) { device->finish(1, {}, kBlob, {}, {}, {}, std::ref(a)); },
    };
    for (const char* reply :
         {"a3 1602 1a900003e9 42aabb 3a6ffffc16 42aabb", "a3 1601 1a900003e9 42aabb 1824 42"}) {
        for (const auto& call : calls) {
            transport.willReply(hex(reply));
            Answer answer;
            call(answer);
            EXPECT_NE(answer.error, ErrorCode::OK);
            EXPECT_TRUE(answer.empty);
        }
    }
}

TEST_F(Keymaster4DeviceTest, AuthTokenOfAnyMac) {
    const auto device = start();
    const std::string numbers(kSampleTokenRecord, 2 * 37);
    const std::pair<Bytes, std::string> cases[] = {
        {{}, numbers + toHex(Bytes(32))},
        {hex("01020304"), numbers + "01020304" + toHex(Bytes(28))},
        {Bytes(32, 0x5C) + hex("ff"), kSampleTokenRecord},
        {Bytes(100, 0x5C), kSampleTokenRecord},
    };
    for (const auto& [mac, record] : cases) {
        HardwareAuthToken token = sampleToken();
        token.mac = mac;
        Answer answer;
        device->begin(KeyPurpose::SIGN, kBlob, {}, token, std::ref(answer));
        EXPECT_EQ(toHex(transport.lastSent().request),
                  toHex(hex("a4 1602 3a6ffffc15 5845" + record + "1a2000000102 1743010203")));
    }
}

// ---- Agreement and verification ----

TEST_F(Keymaster4DeviceTest, SharingParameters) {
    const auto device = start();
    const Bytes nonce(32, 0x22);
    for (const Bytes& seed : {Bytes(), hex("01020304"), Bytes(32, 0x11)}) {
        transport.willReply(hex("a2 1829 58") + Bytes(1, static_cast<uint8_t>(seed.size())) + seed +
                            hex("182a 5820") + nonce);
        Bytes padded = seed;
        padded.resize(32);
        int calls = 0;
        device->getHmacSharingParameters([&](ErrorCode error, const auto& params) {
            ++calls;
            EXPECT_EQ(error, ErrorCode::OK);
            EXPECT_EQ(toBytes(params.seed), padded);
            EXPECT_EQ(Bytes(params.nonce.data(), params.nonce.data() + 32), nonce);
        });
        EXPECT_EQ(calls, 1);
    }
}

TEST_F(Keymaster4DeviceTest, SharedHmac) {
    const auto device = start();
    hidl_vec<HmacSharingParameters> parties(3);
    parties[0].seed = Bytes();
    parties[1].seed = hex("0102");
    parties[2].seed = Bytes(100, 0x33);  // runs on where the nonce belongs
    for (auto& party : parties) std::fill_n(party.nonce.data(), 32, uint8_t{0x44});
    transport.willReply(hex("a1 182c 42beef"));
    int calls = 0;
    device->computeSharedHmac(parties, [&](ErrorCode error, const auto& check) {
        ++calls;
        EXPECT_EQ(error, ErrorCode::OK);
        EXPECT_EQ(toBytes(check), hex("beef"));
    });
    EXPECT_EQ(calls, 1);
    const Bytes nonce(32, 0x44);
    EXPECT_EQ(transport.lastSent().request, hex("a1 182b 58c0") + Bytes(32) + nonce + hex("0102") +
                                                Bytes(30) + nonce + Bytes(32, 0x33) + nonce);
}

TEST_F(Keymaster4DeviceTest, VerificationTokens) {
    const auto device = start();
    const Bytes mac(32, 0x66);
    for (const uint32_t level : {0U, 1U, 2U, 3U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(level);
        const bool good = level == 1 || level == 2;
        transport.willReply(words({0, 7, 8, 9, 10, level}) + mac);
        int calls = 0;
        device->verifyAuthorization(
            5, {integerParam(Tag::DIGEST, level)}, sampleToken(), [&](auto error, auto& token) {
                ++calls;
                EXPECT_EQ(error, good ? ErrorCode::OK : ErrorCode::UNKNOWN_ERROR);
                EXPECT_EQ(token.challenge, 0x800000007U);
                EXPECT_EQ(token.timestamp, 0xA00000009U);
                EXPECT_EQ(static_cast<uint32_t>(token.securityLevel), good ? level : 0);
                EXPECT_EQ(toBytes(token.mac), mac);
                EXPECT_EQ(token.parametersVerified.size(), 0U);
            });
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(transport.lastSent().request, words({0x118, 5, 0}));
    }
}

}  // namespace
