// What the device core checks itself, and what it does around the exchange.

#include <gtest/gtest.h>

#include <functional>

#include "KeyBlobs.h"
#include "LogCapture.h"
#include "Outputs.h"

namespace {

using keymasterdevice::KeymasterHalDevice;
using lumo::test::Bytes;
using lumo::test::hex;
using lumo::test::Outputs;
using lumo::test::ScriptedTransport;
using lumo::test::operator+;

constexpr auto kTee = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;

const uint8_t kByte[] = {0xAA};
const keymaster_key_blob_t kBlob = {kByte, 1};
const keymaster_key_blob_t kEmptyBlob = {kByte, 0};
const keymaster_key_blob_t kNullBlob = {nullptr, 1};
const keymaster_blob_t kData = {kByte, 1};
const keymaster_blob_t kEmptyData = {kByte, 0};
keymaster_key_param_t kParam = keymaster_param_int(KM_TAG_KEY_SIZE, 256);
const keymaster_key_param_set_t kSet = {&kParam, 1};
const keymaster_key_param_set_t kEmptySet = {&kParam, 0};
keymaster_key_param_t kInvalidParam = {KM_TAG_INVALID, {}};
const keymaster_key_param_set_t kInvalidSet = {&kInvalidParam, 1};

#define OPERATION(call) [](KeymasterHalDevice& d, Outputs& o) { return (void)o, d.call; }

TEST(CborArguments, AreCheckedBeforeAnythingIsSent) {
    static keymaster_cert_chain_t no_entries = {nullptr, 1};
    static keymaster_blob_t entry;
    static keymaster_cert_chain_t no_count = {&entry, 0};
    static keymaster_key_characteristics_t characteristics;
    const struct {
        const char* name;
        std::function<keymaster_error_t(KeymasterHalDevice&, Outputs&)> run;
        int result;
    } cases[] = {
        {"generate", OPERATION(generate_key(&kSet, nullptr, nullptr)), -27},
        {"characteristics of nothing",
         OPERATION(get_key_characteristics(nullptr, nullptr, nullptr, &characteristics)), -32},
        {"characteristics of an empty blob",
         OPERATION(get_key_characteristics(&kEmptyBlob, nullptr, nullptr, &characteristics)), -32},
        {"characteristics to nowhere",
         OPERATION(get_key_characteristics(&kBlob, nullptr, nullptr, nullptr)), -27},
        {"import without parameters",
         OPERATION(import_key(nullptr, KM_KEY_FORMAT_RAW, &kData, &o.key_blob, nullptr)), -32},
        {"import of nothing",
         OPERATION(import_key(&kSet, KM_KEY_FORMAT_RAW, &kEmptyData, nullptr, nullptr)), -32},
        {"import to nowhere",
         OPERATION(import_key(&kSet, KM_KEY_FORMAT_RAW, &kData, nullptr, nullptr)), -27},
        {"wrapped import to nowhere",
         OPERATION(import_wrapped_key(&kSet, 0, 0, {}, {}, {}, nullptr, nullptr)), -27},
        {"export", OPERATION(export_key(KM_KEY_FORMAT_X509, &kNullBlob, nullptr, nullptr, nullptr)),
         -32},
        {"export to nowhere",
         OPERATION(export_key(KM_KEY_FORMAT_X509, &kBlob, nullptr, nullptr, nullptr)), -27},
        {"attest", OPERATION(attest_key(&kBlob, nullptr, &o.chain)), -32},
        {"attest to nowhere", OPERATION(attest_key(&kBlob, &kSet, nullptr)), -32},
        {"attest without entries", OPERATION(attest_key(&kBlob, &kSet, &no_entries)), -27},
        {"attest with no entry", OPERATION(attest_key(&kBlob, &kSet, &no_count)), -27},
        {"upgrade with an empty set", OPERATION(upgrade_key(&kBlob, &kEmptySet, nullptr)), -32},
        {"upgrade to nowhere", OPERATION(upgrade_key(&kBlob, &kSet, nullptr)), -27},
        {"begin", OPERATION(begin_operation(KM_PURPOSE_SIGN, &kNullBlob, &kSet, nullptr, nullptr)),
         -32},
        {"begin without a handle",
         OPERATION(begin_operation(KM_PURPOSE_SIGN, &kEmptyBlob, &kSet, &o.params, nullptr)), -27},
        {"update", OPERATION(update_operation(1, &kSet, &kData, nullptr, &o.params, &o.output)),
         -27},
        {"hmac parameters", OPERATION(get_hmac_sharing_parameters(nullptr)), -27},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedTransport::instance().reset();
        KeymasterHalDevice device(kTee);
        Outputs outputs;
        EXPECT_EQ(c.run(device, outputs), c.result);
        EXPECT_EQ(ScriptedTransport::instance().callNames(), "isLegacy");
    }
}

TEST(CborArguments, RequestsThatDoNotEncodeAreNotSent) {
    const struct {
        const char* name;
        std::function<keymaster_error_t(KeymasterHalDevice&, Outputs&)> run;
    } cases[] = {
        {"an invalid tag", OPERATION(generate_key(&kInvalidSet, &o.key_blob, nullptr))},
        {"an export with application data alone",
         OPERATION(export_key(KM_KEY_FORMAT_X509, &kBlob, &kEmptyData, &kData, &o.output))},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedTransport::instance().reset();
        KeymasterHalDevice device(kTee);
        Outputs outputs;
        EXPECT_EQ(c.run(device, outputs), KM_ERROR_INVALID_INPUT_LENGTH);
        EXPECT_EQ(ScriptedTransport::instance().callNames(), "isLegacy hsm_init init");
    }
}

TEST(CborArguments, OutputsAreClearedBeforeTheExchange) {
    ScriptedTransport::instance().reset();
    ScriptedTransport::instance().hsm_result = KM_ERROR_SECURE_HW_BUSY;
    KeymasterHalDevice device(kTee);
    keymaster_key_param_set_t params = {&kParam, 1};
    EXPECT_EQ(device.begin_operation(KM_PURPOSE_SIGN, &kBlob, nullptr, &params, nullptr), -27);
    EXPECT_EQ(params.params, nullptr);
    EXPECT_EQ(params.length, 0U);

    for (bool update : {true, false}) {
        params = kSet;
        keymaster_blob_t output = kData;
        uint32_t consumed = 5;
        const keymaster_error_t result =
            update ? device.update_operation(1, nullptr, nullptr, &consumed, &params, &output)
                   : device.finish_operation(1, nullptr, nullptr, nullptr, &params, &output);
        EXPECT_EQ(result, KM_ERROR_SECURE_HW_BUSY);
        EXPECT_EQ(params.params, nullptr);
        EXPECT_EQ(output.data, nullptr);
        EXPECT_EQ(output.data_length, 0U);
        EXPECT_EQ(consumed, update ? 0U : 5U);
    }
}

TEST(CborArguments, NewKeysAreReadWithTheEarlyBootByte) {
    const Bytes blob = lumo::test::blobOf(352, 4, 4, "24:4=2 319:4=1 351:1=1");
    const Bytes reply = hex("a1 17 590160") + blob;
    const keymaster_key_blob_t given = {blob.data(), blob.size()};
    ScriptedTransport& transport = ScriptedTransport::instance();
    KeymasterHalDevice device(kTee);
    Outputs outputs[3];
    keymaster_key_characteristics_t read[4] = {};
    transport.reset();
    for (int i = 0; i < 3; ++i) transport.willReply(reply);
    EXPECT_EQ(device.generate_key(&kSet, &outputs[0].key_blob, &read[0]), KM_ERROR_OK);
    EXPECT_EQ(device.import_key(&kSet, KM_KEY_FORMAT_RAW, &kData, &outputs[1].key_blob, &read[1]),
              KM_ERROR_OK);
    EXPECT_EQ(device.import_wrapped_key(&kSet, 0, 0, {}, {}, {}, &outputs[2].key_blob, &read[2]),
              KM_ERROR_OK);
    transport.reset();
    EXPECT_EQ(device.get_key_characteristics(&given, nullptr, nullptr, &read[3]), KM_ERROR_OK);
    EXPECT_EQ(transport.callNames(), "isLegacy");
    for (keymaster_key_characteristics_t& characteristics : read) {
        EXPECT_EQ(lumo::test::linesOf(characteristics.hw_enforced),
                  (std::vector<std::string>{"10000130=1", "70000131=1"}));
        keymaster_free_characteristics(&characteristics);
    }
}

TEST(CborArguments, AKeyWithBadCharacteristicsStaysWithTheCaller) {
    lumo::test::LogCapture log;
    ScriptedTransport::instance().reset();
    ScriptedTransport::instance().willReply(hex("a1 17 43010203"));
    KeymasterHalDevice device(kTee);
    Outputs o;
    keymaster_key_characteristics_t characteristics = {};
    EXPECT_EQ(device.generate_key(&kSet, &o.key_blob, &characteristics), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(o.key_blob.key_material_size, 3U);
    EXPECT_TRUE(log.lines().empty());
}

TEST(CborArguments, DeviceStateGoesOverCborEvenOnALegacyTransport) {
    ScriptedTransport& transport = ScriptedTransport::instance();
    transport.reset();
    transport.legacy = true;
    KeymasterHalDevice device(KM_SECURITY_LEVEL_STRONGBOX);
    EXPECT_EQ(device.set_early_boot_ended(), KM_ERROR_OK);
    EXPECT_EQ(transport.lastSent().command_id, 0x211CU);
    EXPECT_EQ(device.set_device_locked(true), KM_ERROR_OK);
    EXPECT_EQ(transport.lastSent().command_id, 0x211DU);
    EXPECT_EQ(transport.callNames(), "hsm_init init sendCmd hsm_init init sendCmd");
    EXPECT_EQ(device.get_keymaster_version(), 4U);
}

}  // namespace
