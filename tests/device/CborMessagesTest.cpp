// Requests, responses and command identifiers of every operation over CBOR.

#include <gtest/gtest.h>

#include <functional>

#include "Outputs.h"

namespace {

using keymasterdevice::KeymasterHalDevice;
using lumo::test::Bytes;
using lumo::test::hex;
using lumo::test::Outputs;
using lumo::test::ScriptedTransport;
using lumo::test::toHex;
using std::string;

string repeat(const string& part, size_t times) {
    string all;
    while (times-- > 0) all += part;
    return all;
}

keymaster_tag_t tag(uint32_t number) {
    return static_cast<keymaster_tag_t>(number);
}

const uint8_t kBlobBytes[] = {0xAA};
const uint8_t kWordBytes[] = {'c', 'd', 'x', 's'};
const keymaster_key_blob_t kBlob = {kBlobBytes, 1};
const keymaster_blob_t kClientId = {kWordBytes, 1};
const keymaster_blob_t kAppData = {kWordBytes + 1, 1};
const keymaster_blob_t kInput = {kWordBytes + 2, 1};
const keymaster_blob_t kSignature = {kWordBytes + 3, 1};

keymaster_key_param_t kKeySize = keymaster_param_int(KM_TAG_KEY_SIZE, 256);
const keymaster_key_param_set_t kOne = {&kKeySize, 1};
const char kOneHex[] = "16 01 1a30000003 190100 ";
const keymaster_key_param_set_t kNullArray = {nullptr, 3};

// One of each kind of value; the boolean is false and the last tag has a type that nobody knows.
keymaster_key_param_t kKinds[] = {
    keymaster_param_enum(KM_TAG_ALGORITHM, 3),
    keymaster_param_int(KM_TAG_OS_VERSION, 0xFFFFFFFF),
    keymaster_param_long(KM_TAG_RSA_PUBLIC_EXPONENT, 65537),
    keymaster_param_long(KM_TAG_USER_SECURE_ID, uint64_t{1} << 63),
    keymaster_param_date(KM_TAG_CREATION_DATETIME, uint64_t{1} << 32),
    {KM_TAG_NO_AUTH_REQUIRED, {}},
    keymaster_param_blob(KM_TAG_APPLICATION_ID, kWordBytes, 2),
    keymaster_param_blob(KM_TAG_APPLICATION_DATA, nullptr, 5),
    {tag(0xB0000001), {}},
};
const keymaster_key_param_set_t kAllKinds = {kKinds, 9};

struct Row {
    const char* name;
    uint32_t command, strongbox_command;
    std::function<keymaster_error_t(KeymasterHalDevice&, Outputs&)> run;
    string request;
    string reply;
    string outputs;  // a part of Outputs::all(); empty where the reply is ignored
};

#define OPERATION(call) [](KeymasterHalDevice& d, Outputs& o) { return (void)o, d.call; }

const Row kRows[] = {
    {"configure", 0x2116, 0x2116, OPERATION(configure(&kOne)), string("a2") + kOneHex, "ff", ""},
    {"configure, no set", 0x2116, 0x2116, OPERATION(configure(nullptr)), "a1 16 00", "", ""},
    {"configure, no array", 0x2116, 0x2116, OPERATION(configure(&kNullArray)), "a1 16 00", "", ""},
    {"generate", 0x2108, 0x2508, OPERATION(generate_key(&kAllKinds, &o.key_blob, nullptr)),
     "a9 16 09 1a10000002 03 1a300002c1 1affffffff 1a500000c8 1a00010001"
     "3a5ffffe09 3b7fffffffffffffff 1a600002bd 1b0000000100000000 1a700001f7 f5"
     "3a6ffffda6 426364 3a6ffffd43 40",
     "a1 17 43aabbcc", "blob aabbcc,"},
    {"import", 0x210B, 0x250B,
     OPERATION(import_key(&kOne, KM_KEY_FORMAT_PKCS8, &kInput, &o.key_blob, nullptr)),
     string("a4") + kOneHex + "1818 01 1819 4178", "a1 17 4101", "blob 01,"},
    {"import wrapped", 0x2117, 0x2517,
     OPERATION(
         import_wrapped_key(&kOne, 5, uint64_t{1} << 32, {1}, {}, {2, 3}, &o.key_blob, nullptr)),
     string("a7") + kOneHex + "0c 05 0d 1b0000000100000000 181b 4101 181a 40 181c 420203",
     "a1 17 40", "blob ,"},
    {"export", 0x210C, 0x250C,
     OPERATION(export_key(KM_KEY_FORMAT_X509, &kBlob, nullptr, nullptr, &o.output)),
     "a3 16 00 17 41aa 1818 00", "a1 1824 429988", "output 9988,"},
    {"export, the client id twice and the application data never", 0x210C, 0x250C,
     OPERATION(export_key(KM_KEY_FORMAT_X509, &kBlob, &kClientId, &kAppData, &o.output)),
     "a5 16 02 3a6ffffda6 4163 3a6ffffda6 4163 17 41aa 1818 00", "a1 1824 40", "output ,"},
    {"attest, without dates", 0x2115, 0x2515, OPERATION(attest_key(&kBlob, &kOne, &o.chain)),
     string("a5") + kOneHex + "17 41aa 1827 89" + repeat("20", 9) + "1828 89" + repeat("20", 9),
     "a3 1820 02 1821 42c1c2 1821 40", "chain c1c2 "},
    {"attest, no certificates", 0x2115, 0x2515,
     OPERATION(attest_key(&kBlob, &kNullArray, &o.chain)),
     "a4 16 00 17 41aa 1827 89" + repeat("20", 9) + "1828 89" + repeat("20", 9), "a1 1820 00",
     "chain"},
    {"upgrade", 0x2114, 0x2514, OPERATION(upgrade_key(&kBlob, &kOne, &o.key_blob)),
     string("a3") + kOneHex + "17 41aa", "a1 17 4102", "blob 02,"},
    {"delete", 0x210D, 0x250D, OPERATION(delete_key(&kBlob)), "a1 17 41aa", "", ""},
    {"delete, no blob", 0x210D, 0x250D, OPERATION(delete_key(nullptr)), "a1 17 40", "", ""},
    {"delete all", 0x210E, 0x210E, OPERATION(delete_all_keys()), "", "", ""},
    {"destroy device ids", 0x220B, 0x2704, OPERATION(destroy_device_ids()), "a1 182d f4", "", ""},
    {"begin", 0x210F, 0x250F,
     OPERATION(begin_operation(KM_PURPOSE_SIGN, &kBlob, &kOne, &o.params, &o.handle)),
     "a4 16 02 1a30000003 190100 1a20000001 02 17 41aa",
     "a3 16 01 1a900003e9 420102 1822 1bffffffffffffffff",
     "params 900003e9=0102 , handle 18446744073709551615,"},
    {"begin, no parameters", 0x210F, 0x250F,
     OPERATION(begin_operation(KM_PURPOSE_SIGN, &kBlob, nullptr, &o.params, &o.handle)),
     "a3 16 01 1a20000001 02 17 41aa", "a1 1822 07", "params null, handle 7,"},
    {"begin, an empty list", 0x210F, 0x250F,
     OPERATION(begin_operation(KM_PURPOSE_SIGN, &kBlob, &kNullArray, &o.params, &o.handle)),
     "a3 16 01 1a20000001 02 17 41aa", "a2 16 00 1822 07", "params null, handle 7,"},
    {"begin, no place for parameters", 0x210F, 0x250F,
     OPERATION(begin_operation(KM_PURPOSE_SIGN, &kBlob, nullptr, nullptr, &o.handle)),
     "a3 16 01 1a20000001 02 17 41aa", "a3 16 01 1a900003e9 420102 1822 07", "handle 7,"},
    {"update", 0x2111, 0x2511,
     OPERATION(update_operation(16, &kOne, &kInput, &o.consumed, &o.params, &o.output)),
     string("a4 1822 10") + kOneHex + "1823 4178", "a2 1824 41ee 1825 1affffffff",
     "output ee, params null, handle 0, consumed 4294967295,"},
    {"update, nothing to do", 0x2111, 0x2511,
     OPERATION(update_operation(1, nullptr, nullptr, &o.consumed, &o.params, &o.output)),
     "a1 1822 01", "a2 1824 40 1825 00", "output null,"},
    {"update, no places", 0x2111, 0x2511,
     OPERATION(update_operation(1, &kNullArray, nullptr, &o.consumed, nullptr, nullptr)),
     "a1 1822 01", "a4 16 01 1a900003e9 4101 1824 41ee 1825 03", "consumed 3,"},
    {"finish, every kind of parameter", 0x2112, 0x2512,
     OPERATION(finish_operation(16, nullptr, &kInput, &kSignature, &o.params, &o.output)),
     "a3 1822 10 1823 4178 1826 4173",
     "a9 16 07 1a10000002 03 1a600002bd 1b0000000100000000 1aa00001f6 3b7fffffffffffffff"
     "1a700001f7 f4 1ab0000001 00 1a900003ea 626869 1a800003ea 40 1824 42beef",
     "output beef, params 10000002=3 600002bd=100000000 a00001f6=8000000000000000 700001f7=1 "
     "b0000001=0 900003ea=6869 800003ea= ,"},
    {"finish, nothing comes back", 0x2112, 0x2512,
     OPERATION(finish_operation(16, &kOne, nullptr, nullptr, &o.params, &o.output)),
     string("a3 1822 10") + kOneHex, "a0", "output null, params null,"},
    {"abort", 0x2113, 0x2513, OPERATION(abort_operation(UINT64_MAX)), "a1 1822 1bffffffffffffffff",
     "", ""},
    {"hmac parameters, a short seed and a long nonce", 0x220E, 0x2706,
     OPERATION(get_hmac_sharing_parameters(&o.hmac)), "",
     "a2 1829 4171 182a 5821" + repeat("77", 33), "seed 71" + repeat("00", 31) + repeat("77", 32)},
    {"compute hmac, behind what is there", 0x220F, 0x2707,
     OPERATION(compute_shared_hmac({o.hmac, {{1}, {2}}}, o.check)),
     "a1 182b 5880" + repeat("00", 64) + "01" + repeat("00", 31) + "02" + repeat("00", 31),
     "a1 182c 42c0c1", "check 99c0c1,"},
    {"early boot ended", 0x2119, 0x211C, OPERATION(set_early_boot_ended()), "", "ff", ""},
    {"device locked", 0x211A, 0x211D, OPERATION(set_device_locked(true)), "a1 182e f5", "", ""},
    {"device locked, any unlock", 0x211A, 0x211D, OPERATION(set_device_locked(false)), "a1 182e f4",
     "", ""},
};

bool hasTwin(const Row& row) {
    return row.command != 0x2119 && row.command != 0x211A;
}

TEST(CborMessages, AreThoseOfTheirTableAtEveryLevel) {
    ScriptedTransport& transport = ScriptedTransport::instance();
    for (uint32_t level : {0U, 1U, 2U}) {
        for (const Row& row : kRows) {
            SCOPED_TRACE(testing::Message() << row.name << ", level " << level);
            transport.reset();
            transport.willReply(hex(row.reply));
            KeymasterHalDevice device(static_cast<keymaster_security_level_t>(level));
            EXPECT_EQ(transport.level, level);
            Outputs outputs;
            ASSERT_EQ(row.run(device, outputs), KM_ERROR_OK);
            EXPECT_EQ(transport.callNames(),
                      hasTwin(row) ? "isLegacy hsm_init init sendCmd" : "hsm_init init sendCmd");
            EXPECT_EQ(transport.lastSent().command_id,
                      level == 2 ? row.strongbox_command : row.command);
            EXPECT_EQ(toHex(transport.lastSent().request), toHex(hex(row.request)));
            EXPECT_NE(outputs.all().find(row.outputs), string::npos) << outputs.all();
        }
    }
}

TEST(CborMessages, CutOffOrContinuedRepliesAreErrorsThatLeaveTheOutputs) {
    for (const Row& row : kRows) {
        if (row.outputs.empty()) continue;
        const Bytes whole = hex(row.reply);
        for (size_t length = 0; length <= whole.size() + 1; ++length) {
            // No bytes at all are a fair answer to a finish: everything in it is optional.
            const bool all_optional = length == 0 && string(row.name).rfind("finish", 0) == 0;
            if (length == whole.size() || all_optional) continue;
            SCOPED_TRACE(testing::Message() << row.name << ", " << length << " bytes");
            ScriptedTransport::instance().reset();
            Bytes reply = whole;
            reply.resize(length);
            ScriptedTransport::instance().willReply(reply);
            KeymasterHalDevice device(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
            Outputs outputs;
            const string before = outputs.all();
            EXPECT_NE(row.run(device, outputs), KM_ERROR_OK);
            EXPECT_EQ(outputs.all(), before);
        }
    }
}

TEST(CborMessages, EveryStepsErrorEndsTheCall) {
    ScriptedTransport& transport = ScriptedTransport::instance();
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        const string link = hasTwin(row) ? "isLegacy hsm_init" : "hsm_init";
        KeymasterHalDevice device(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
        Outputs outputs;
        transport.reset();
        transport.hsm_result = KM_ERROR_SECURE_HW_ACCESS_DENIED;
        EXPECT_EQ(row.run(device, outputs), KM_ERROR_SECURE_HW_ACCESS_DENIED);
        EXPECT_EQ(transport.callNames(), link);

        transport.reset();
        transport.replies.push_back({KM_ERROR_SECURE_HW_COMMUNICATION_FAILED, {}});
        EXPECT_EQ(row.run(device, outputs), KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);
        EXPECT_EQ(transport.sentCount(), 1U);

        if (row.request.empty()) continue;
        transport.reset();
        transport.cbor_capacity = hex(row.request).size() - 1;
        EXPECT_EQ(row.run(device, outputs), KM_ERROR_INVALID_INPUT_LENGTH);
        EXPECT_EQ(transport.callNames(), link + " init");
    }
}

TEST(CborMessages, BadResponsesGiveTheirCode) {
    const auto begin =
        OPERATION(begin_operation(KM_PURPOSE_SIGN, &kBlob, nullptr, &o.params, &o.handle));
    const auto generate = OPERATION(generate_key(nullptr, &o.key_blob, nullptr));
    const auto attest = OPERATION(attest_key(&kBlob, &kOne, &o.chain));
    const auto update =
        OPERATION(update_operation(1, nullptr, nullptr, &o.consumed, &o.params, &o.output));
    const struct {
        const char* name;
        std::function<keymaster_error_t(KeymasterHalDevice&, Outputs&)> run;
        const char* reply;
        int result;
        size_t announced;
    } cases[] = {
        {"not a map", generate, "80", -1, 0},
        {"not a map, before an optional entry", begin, "80", 6, 0},
        {"a map without end", generate, "bf 17 4101 ff", -1, 0},
        {"another label", generate, "a1 1824 4101", 1, 0},
        {"text for bytes", generate, "a1 17 6161", -1, 0},
        {"another order", attest, "a2 1821 4101 1820 01", 1, 0},
        {"parameters behind the handle", begin, "a2 1822 07 16 00", 16, 0},
        {"an entry left over", update, "a2 1825 01 1824 41ee", 16, 0},
        {"a count that is text", begin, "a2 16 6131 1822 07", 1, 0},
        {"a count above 32 bits", begin, "a2 16 1b0000000100000000 1822 07", 1, 0},
        {"a certificate missing", attest, "a2 1820 02 1821 41c1", 6, 0},
        {"certificates that no response holds", attest, "a2 1820 1a1fffffff 1821 41c1", 6, 0},
        {"certificates that no memory holds", attest, "a2 1820 1a20000000 1821 41c1", -41, 0},
        {"a negative label", begin, "a3 16 01 3a6ffffda6 4101 1822 07", -40, 1},
        {"a text label", begin, "a3 16 01 6161 01 1822 07", -40, 1},
        {"a label above 32 bits", begin, "a3 16 01 1b0000000110000002 03 1822 07", -40, 1},
        {"the invalid tag", begin, "a3 16 01 00 01 1822 07", -40, 1},
        {"an integer for bytes", begin, "a3 16 01 1a900003e9 01 1822 07", -40, 1},
        {"an array for a big number", begin, "a3 16 01 1a800003e9 80 1822 07", -40, 1},
        {"bad after a good one", begin, "a4 16 02 1a900003e9 4101 00 01 1822 07", -40, 2},
        {"a parameter missing", begin, "a2 16 02 1a30000003 01", -40, 2},
        {"parameters that no response holds", begin, "a2 16 1a0fffffff 1822 07", -40, 0x0FFFFFFF},
        {"parameters that no memory holds", begin, "a2 16 1a10000000 1822 07", -41, 0x10000000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedTransport::instance().reset();
        ScriptedTransport::instance().willReply(hex(c.reply));
        KeymasterHalDevice device(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
        Outputs outputs;
        const string before = outputs.all();
        EXPECT_EQ(c.run(device, outputs), c.result);
        EXPECT_EQ(outputs.all(), before);
        EXPECT_EQ(outputs.params.length, c.announced);
    }
}

TEST(CborMessages, FinishMayBeAnsweredWithNothing) {
    for (const char* reply : {"", "a0"}) {
        ScriptedTransport::instance().reset();
        ScriptedTransport::instance().willReply(hex(reply));
        KeymasterHalDevice device(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
        Outputs outputs;
        EXPECT_EQ(
            device.finish_operation(1, nullptr, nullptr, nullptr, &outputs.params, &outputs.output),
            KM_ERROR_OK);
        EXPECT_EQ(outputs.output.data, nullptr);
        EXPECT_EQ(outputs.params.length, 0U);
    }
}

TEST(CborMessages, UpdateInputIsCutAndFinishInputIsNot) {
    const Bytes data(20000, 0x5A);
    const keymaster_blob_t input = {data.data(), data.size()};
    ScriptedTransport& transport = ScriptedTransport::instance();
    transport.reset();
    transport.willReply(hex("a1 1825 194000"));
    transport.willReply(hex("a0"));
    KeymasterHalDevice device(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
    Outputs outputs;
    EXPECT_EQ(device.update_operation(1, nullptr, &input, &outputs.consumed, nullptr, nullptr), 0);
    EXPECT_EQ(toHex(transport.lastSent().request),
              toHex(hex("a2 1822 01 1823 594000")) + repeat("5a", 16384));
    EXPECT_EQ(device.finish_operation(1, nullptr, &input, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(toHex(transport.lastSent().request),
              toHex(hex("a2 1822 01 1823 594e20")) + repeat("5a", 20000));
}

}  // namespace
