#include <Keymaster4Device.h>

#include "EnumBits.h"
#include "ServiceMethods.h"

namespace {

using namespace ::lumo::test;
using ::keymaster::V4_0::CreateKeymasterDevice;
using ::keymaster::V4_0::CreateSbKeymasterDevice;
using ::keymaster::V4_0::Keymaster4Device;
using ::keymasterdevice::enumFromBits;
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
        transport.willReply(fromHex("ff"));  // what is answered to configure does not matter
        const sp<IKeymasterDevice> device = c.create();
        EXPECT_EQ(transport.level, c.level);
        EXPECT_EQ(transport.callNames(),
                  "vaultlink_dev_init send_cmd isLegacy hsm_init init sendCmd");
        EXPECT_EQ(toHex(transport.calls[1].request), "15020000eeeeeeeeeeeeeeee");
        EXPECT_EQ(transport.calls[5].command_id, 0x2116U);
        EXPECT_EQ(toHex(transport.calls[5].request),
                  toHex(fromHex(std::string(kConfigure) + c.vendor_patchlevel)));
    }
}

TEST_F(StartUp, UnreadableVersionsAreSentAsZero) {
    setProperty("ro.build.version.release", "R");
    setProperty("ro.build.version.security_patch", "yesterday");
    setProperty("ro.vendor.build.security_patch", "2020-13-01");
    transport.willReply(words({0}));
    const sp<IKeymasterDevice> device = CreateKeymasterDevice();
    EXPECT_EQ(toHex(transport.lastSent().request),
              toHex(fromHex("a4 16 03 1a300002c1 00 1a300002c2 00 1a300002ce 00")));
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
            static_cast<void>(CreateKeymasterDevice());
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
        static_cast<void>(CreateKeymasterDevice());
    };
    const Bytes good = words({0});
    EXPECT_DEATH(run({-5, good}, {}), "get_date_support failed");
    EXPECT_DEATH(run({0, words({static_cast<uint32_t>(-39)})}, {}), "get_date_support failed");
    EXPECT_DEATH(run({0, good}, {-5, {}}), "Configure failed");
}

// ---- Every method ----

TEST_F(Keymaster4DeviceTest, EveryMethod) {
    expectEveryMethod(*start(), false);
    expectEveryMethod(*ServiceTest::start(CreateSbKeymasterDevice), true);
}

TEST_F(Keymaster4DeviceTest, HardwareInfoByLevel) {
    const struct {
        uint32_t level;
        int calls;
        SecurityLevel reported;
    } cases[] = {
        {KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, 1, SecurityLevel::TRUSTED_ENVIRONMENT},
        {KM_SECURITY_LEVEL_STRONGBOX, 1, SecurityLevel::STRONGBOX},
        {KM_SECURITY_LEVEL_SOFTWARE, 0, {}},
        {0x80000003, 0, {}},
    };
    for (const auto& c : cases) {
        transport.reset();
        transport.keymaster_version = 4000000001;
        transport.willReply(words({0}));
        const sp<IKeymasterDevice> device =
            new Keymaster4Device(enumFromBits<keymaster_security_level_t>(c.level));
        EXPECT_EQ(transport.level, c.level);
        int calls = 0;
        const auto result =
            device->getHardwareInfo([&](SecurityLevel level, const auto& name, const auto& author) {
                ++calls;
                EXPECT_EQ(level, c.reported);
                EXPECT_EQ(std::string(name), "Keymaster HAL: 4000000001");
                EXPECT_EQ(std::string(author), "LUMO");
            });
        EXPECT_TRUE(result.isOk());
        EXPECT_EQ(calls, c.calls);
    }
}

TEST_F(Keymaster4DeviceTest, ValuesWithoutAnEnumeratorPassUnchanged) {
    for (const bool legacy : {false, true}) {
        SCOPED_TRACE(legacy);
        const auto device = start();
        transport.legacy = legacy;
        for (const int32_t code : {5000, -5000, INT32_MIN}) {
            transport.hsm_result = code;
            EXPECT_EQ(ErrorCode(device->abort(1)), ErrorCode{code});
            transport.hsm_result = 0;
            if (legacy) transport.willReply(words({static_cast<uint32_t>(code)}));
            if (!legacy) transport.replies = {{code, {}}};
            EXPECT_EQ(ErrorCode(device->abort(1)), ErrorCode{code});
        }
        const struct {
            std::function<void(Answer&)> call;
            size_t word;  // of the record
            uint32_t value;
            const char* cbor;  // label and value
        } cases[] = {
            {[&](Answer& a) { device->begin(KeyPurpose{8}, kBlob, {}, {}, std::ref(a)); }, 1, 8,
             "1a2000000108"},
            {[&](Answer& a) {
                 device->importKey({integerParam(Tag::ALGORITHM, 32)}, KeyFormat{4}, kBlob,
                                   std::ref(a));
             },
             1, 4, "181804"},
            {[&](Answer& a) {
                 device->exportKey(KeyFormat{0x80000000}, kBlob, kNone, kNone, std::ref(a));
             },
             3, 0x80000000, "18181a80000000"},
            {[&](Answer& a) { device->finish(1, {}, kBlob, kBlob, {}, {}, std::ref(a)); }, 1, 1,
             "182201"},
        };
        for (const auto& c : cases) {
            // For begin: handle 1 of an EC key, whose purpose is kept.
            transport.willReply(legacy ? words({0, 0, 1, 0, 3, 0, 0, 0, 0, 0}) : Bytes());
            Answer answer;
            c.call(answer);
            const Bytes& request = transport.lastSent().request;
            EXPECT_TRUE(legacy ? wordAt(request, c.word) == c.value
                               : toHex(request).find(c.cbor) != std::string::npos)
                << toHex(request);
        }
    }
}

TEST_F(Keymaster4DeviceTest, SomeCallsSendNothing) {
    const auto device = start();
    transport.hsm_result = KM_ERROR_SECURE_HW_COMMUNICATION_FAILED;
    for (const uint32_t size : {0U, 5U, 1U << 20}) {
        EXPECT_EQ(ErrorCode(device->addRngEntropy(Bytes(size))), ErrorCode::OK);
    }
    Answer answer;
    device->getKeyCharacteristics(sampleKeyBlob(), kNone, kNone, std::ref(answer));
    EXPECT_EQ(answer.error, ErrorCode::OK);
    EXPECT_EQ(answer.outputs, kSampleCharacteristics);
    // Empty inputs are missing ones.
    device->getKeyCharacteristics(kNone, kBlob, kBlob, std::ref(answer));
    EXPECT_EQ(answer.error, ErrorCode::UNEXPECTED_NULL_POINTER);
    device->importKey({}, KeyFormat::RAW, kNone, std::ref(answer));
    EXPECT_EQ(answer.error, ErrorCode::UNEXPECTED_NULL_POINTER);
    EXPECT_EQ(transport.sentCount(), 0U);

    transport.hsm_result = KM_ERROR_OK;
    device->exportKey(KeyFormat::PKCS8, kBlob, kNone, kNone, std::ref(answer));
    EXPECT_EQ(transport.lastSent().request, fromHex("a3 1600 1743010203 181801"));
}

// ---- Keys ----

TEST_F(Keymaster4DeviceTest, BadBlobsReturnNoKey) {
    const auto device = start();
    Bytes blob = sampleKeyBlob();
    blob[273] = 2;  // announces one more software-enforced entry than it has
    transport.willReply(fromHex("a1 17 59018b") + blob);
    Answer answer;
    device->generateKey({}, std::ref(answer));
    EXPECT_EQ(answer.error, ErrorCode::INVALID_ARGUMENT);
    EXPECT_TRUE(answer.empty()) << answer.outputs;
}

// ---- Operations ----

// Whatever had been decoded before the fault is neither returned nor kept.
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
            transport.willReply(fromHex(reply));
            Answer answer;
            call(answer);
            EXPECT_NE(answer.error, ErrorCode::OK);
            EXPECT_TRUE(answer.empty()) << answer.outputs;
        }
    }
}

TEST_F(Keymaster4DeviceTest, AuthTokenOfAnyMac) {
    const auto device = start();
    const std::string numbers(kSampleTokenRecord, 2 * 37);
    const std::pair<Bytes, std::string> cases[] = {
        {{}, numbers + toHex(Bytes(32))},
        {fromHex("01020304"), numbers + "01020304" + toHex(Bytes(28))},
        {Bytes(32, 0x5C) + fromHex("ff"), kSampleTokenRecord},
        {Bytes(100, 0x5C), kSampleTokenRecord},
    };
    for (const auto& [mac, record] : cases) {
        HardwareAuthToken token = sampleToken();
        token.mac = mac;
        Answer answer;
        device->begin(KeyPurpose::SIGN, kBlob, {}, token, std::ref(answer));
        EXPECT_EQ(toHex(transport.lastSent().request),
                  toHex(fromHex("a4 1602 3a6ffffc15 5845" + record + "1a2000000102 1743010203")));
    }
}

// ---- Agreement and verification ----

TEST_F(Keymaster4DeviceTest, SharedHmac) {
    const auto device = start();
    hidl_vec<HmacSharingParameters> parties(3);
    parties[0].seed = Bytes();
    parties[1].seed = fromHex("0102");
    parties[2].seed = Bytes(100, 0x33);  // runs on where the nonce belongs
    for (auto& party : parties) std::fill_n(party.nonce.data(), 32, uint8_t{0x44});
    Answer answer;
    device->computeSharedHmac(parties, std::ref(answer));
    const Bytes nonce(32, 0x44);
    EXPECT_EQ(transport.lastSent().request, fromHex("a1 182b 58c0") + Bytes(32) + nonce +
                                                fromHex("0102") + Bytes(30) + nonce +
                                                Bytes(32, 0x33) + nonce);
}

TEST_F(Keymaster4DeviceTest, VerificationTokens) {
    const auto device = start();
    const Bytes mac(32, 0x66);
    for (const uint32_t level : {0U, 1U, 2U, 3U, 0xFFFFFFFFU}) {
        const bool good = level == 1 || level == 2;
        transport.willReply(words({0, 7, 0, 9, 0, level}) + mac);
        Answer answer;
        device->verifyAuthorization(5, {integerParam(Tag::DIGEST, level)}, sampleToken(),
                                    std::ref(answer));
        EXPECT_EQ(answer.error, good ? ErrorCode::OK : ErrorCode::UNKNOWN_ERROR);
        EXPECT_EQ(answer.outputs,
                  "7 9 " + std::to_string(good ? level : 0) + " " + toHex(mac) + "{}");
        EXPECT_EQ(transport.lastSent().request, words({0x118, 5, 0}));
    }
}

}  // namespace
