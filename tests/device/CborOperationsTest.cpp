// Requests, responses and command identifiers of every operation over CBOR, and what the device
// core checks itself.

#include <CborHelpers.h>
#include <KeymasterHalDevice.h>
#include <gtest/gtest.h>

#include <functional>

#include "KeyBlobs.h"
#include "ScriptedTransport.h"

namespace {

using namespace lumo::test;  // NOLINT(google-build-using-namespace): the parts of the tables
using keymasterdevice::KeymasterHalDevice;
using std::string;

string text(const uint8_t* bytes, size_t length) {
    return bytes == nullptr ? "null" : toHex(Bytes(bytes, bytes + length));
}

// What an operation hands out, owned and readable as text.
struct Outputs {
    Outputs() = default;
    Outputs(const Outputs&) = delete;
    ~Outputs() {
        free(const_cast<uint8_t*>(key_blob.key_material));
        free(const_cast<uint8_t*>(output.data));
        keymaster_free_param_set(&params);
        if (chain.entries == &placeholder) return;
        for (size_t i = 0; i < chain.entry_count; ++i) {
            free(const_cast<uint8_t*>(chain.entries[i].data));
        }
        free(chain.entries);
    }

    string paramsText() const {
        if (params.params == nullptr) return "null";
        string all;
        for (const string& line : linesOf(params)) all += line + " ";
        return all;
    }

    // Every output but the announced number of parameters.
    string all() const {
        string result = "blob " + text(key_blob.key_material, key_blob.key_material_size) +
                        ", output " + text(output.data, output.data_length) + ", params " +
                        paramsText() + ", handle " + std::to_string(handle) + ", consumed " +
                        std::to_string(consumed) + ", check " + toHex(check) + ", seed " +
                        text(hmac.seed, 32) + text(hmac.nonce, 32) + ", chain";
        if (chain.entries == &placeholder) return result + " of the caller";
        for (size_t i = 0; i < chain.entry_count; ++i) {
            result += " " + text(chain.entries[i].data, chain.entries[i].data_length);
        }
        return result;
    }

    keymaster_key_blob_t key_blob = {nullptr, 0};
    keymaster_blob_t output = {nullptr, 0};
    keymaster_key_param_set_t params = {nullptr, 0};
    uint64_t handle = 0;
    uint32_t consumed = 0;
    std::vector<uint8_t> check = {0x99};
    hmac_sharing_params_t hmac = {};
    keymaster_blob_t placeholder = {nullptr, 0};
    keymaster_cert_chain_t chain = {&placeholder, 1};
};

// A call on a device core; its text and the call itself, for tables.
using Operation = std::function<keymaster_error_t(KeymasterHalDevice&, Outputs&)>;
#define OPERATION(call) #call, [](KeymasterHalDevice & d, Outputs & o) { return (void)o, d.call; }

// A call on a new device, whose transport answers with `reply`.
struct Outcome {
    Outcome(const Operation& run, Bytes reply,
            keymaster_security_level_t level = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT,
            bool legacy = false) {
        ScriptedTransport::instance().reset();
        ScriptedTransport::instance().legacy = legacy;
        ScriptedTransport::instance().willReply(std::move(reply));
        KeymasterHalDevice device(level);
        result = run(device, outputs);
    }
    Outputs outputs;
    string before = outputs.all();
    keymaster_error_t result;
};

// What calls are given.
const uint8_t kBytes[] = {0xAA, 'c', 'd', 'x', 's'};
const keymaster_key_blob_t kBlob = {kBytes, 1};
const keymaster_blob_t kInput = {kBytes + 3, 1};
keymaster_key_param_t kKeySize = keymaster_param_int(KM_TAG_KEY_SIZE, 256);
const keymaster_key_param_set_t kOne = {&kKeySize, 1};

string repeat(const string& part, size_t times) {
    string all;
    while (times-- > 0) all += part;
    return all;
}

const keymaster_blob_t kClientId = {kBytes + 1, 1};
const keymaster_blob_t kAppData = {kBytes + 2, 1};
const keymaster_blob_t kSignature = {kBytes + 4, 1};
const Bytes kLongBytes(20000, 0x5A);
const keymaster_blob_t kLong = {kLongBytes.data(), kLongBytes.size()};
const Bytes kDatedBytes = blobOf(395, 4, 1, "278:8=1700000000999");
const keymaster_key_blob_t kDated = {kDatedBytes.data(), kDatedBytes.size()};
const keymaster_key_param_set_t kNullArray = {nullptr, 3};
const char kOneHex[] = "16 01 1a30000003 190100 ";

// One of each kind of value; the boolean is false and the last tag has a type that nobody knows.
keymaster_key_param_t kKinds[] = {
    keymaster_param_enum(KM_TAG_ALGORITHM, 3),
    keymaster_param_int(KM_TAG_OS_VERSION, 0xFFFFFFFF),
    keymaster_param_long(KM_TAG_RSA_PUBLIC_EXPONENT, 65537),
    keymaster_param_long(KM_TAG_USER_SECURE_ID, uint64_t{1} << 63),
    keymaster_param_date(KM_TAG_CREATION_DATETIME, uint64_t{1} << 32),
    {KM_TAG_NO_AUTH_REQUIRED, {}},
    keymaster_param_blob(KM_TAG_APPLICATION_ID, kBytes + 1, 2),
    keymaster_param_blob(KM_TAG_APPLICATION_DATA, nullptr, 5),
    {static_cast<keymaster_tag_t>(KM_ULONG_REP + (1 << 28) + 1), {}},
};
const keymaster_key_param_set_t kAllKinds = {kKinds, 9};

struct Row {
    const char* call;
    Operation run;
    uint32_t command, strongbox_command;
    string request;
    string reply = "";
    string outputs = "";  // a part of Outputs::all(); empty where the reply is ignored
};

const Row kRows[] = {
    {OPERATION(configure(&kOne)), 0x2116, 0x2116, string("a2") + kOneHex, "ff"},
    {OPERATION(configure(nullptr)), 0x2116, 0x2116, "a1 16 00"},
    {OPERATION(generate_key(&kAllKinds, &o.key_blob, nullptr)), 0x2108, 0x2508,
     "a9 16 09 1a10000002 03 1a300002c1 1affffffff 1a500000c8 1a00010001"
     "3a5ffffe09 3b7fffffffffffffff 1a600002bd 1b0000000100000000 1a700001f7 f5"
     "3a6ffffda6 426364 3a6ffffd43 40",
     "a1 17 43aabbcc", "blob aabbcc,"},
    {OPERATION(import_key(&kOne, KM_KEY_FORMAT_PKCS8, &kInput, &o.key_blob, nullptr)), 0x210B,
     0x250B, string("a4") + kOneHex + "1818 01 1819 4178", "a1 17 4101", "blob 01,"},
    {OPERATION(
         import_wrapped_key(&kOne, 5, uint64_t{1} << 32, {1}, {}, {2, 3}, &o.key_blob, nullptr)),
     0x2117, 0x2517,
     string("a7") + kOneHex + "0c 05 0d 1b0000000100000000 181b 4101 181a 40 181c 420203",
     "a1 17 40", "blob ,"},
    {OPERATION(export_key(KM_KEY_FORMAT_X509, &kBlob, nullptr, nullptr, &o.output)), 0x210C, 0x250C,
     "a3 16 00 17 41aa 1818 00", "a1 1824 429988", "output 9988,"},
    // The client id goes out twice and the application data never.
    {OPERATION(export_key(KM_KEY_FORMAT_X509, &kBlob, &kClientId, &kAppData, &o.output)), 0x210C,
     0x250C, "a5 16 02 3a6ffffda6 4163 3a6ffffda6 4163 17 41aa 1818 00", "a1 1824 40", "output ,"},
    {OPERATION(attest_key(&kBlob, &kOne, &o.chain)), 0x2115, 0x2515,
     string("a5") + kOneHex + "17 41aa 1827 89" + repeat("20", 9) + "1828 89" + repeat("20", 9),
     "a3 1820 02 1821 42c1c2 1821 40", "chain c1c2 "},
    {OPERATION(attest_key(&kDated, &kNullArray, &o.chain)), 0x2115, 0x2515,
     "a4 16 00 17 59018b" + toHex(kDatedBytes) +
         "1827 89 14 0d 16 0e 0b 1907e7 202020 1828 89 183b 183b 17 181f 0c 1907b1 202020",
     "a1 1820 00", "chain"},
    {OPERATION(upgrade_key(&kBlob, &kOne, &o.key_blob)), 0x2114, 0x2514,
     string("a3") + kOneHex + "17 41aa", "a1 17 4102", "blob 02,"},
    {OPERATION(delete_key(&kBlob)), 0x210D, 0x250D, "a1 17 41aa"},
    {OPERATION(delete_key(nullptr)), 0x210D, 0x250D, "a1 17 40"},
    {OPERATION(delete_all_keys()), 0x210E, 0x210E, ""},
    {OPERATION(destroy_device_ids()), 0x220B, 0x2704, "a1 182d f4"},
    {OPERATION(begin_operation(KM_PURPOSE_SIGN, &kBlob, &kOne, &o.params, &o.handle)), 0x210F,
     0x250F, "a4 16 02 1a30000003 190100 1a20000001 02 17 41aa",
     "a3 16 01 1a900003e9 420102 1822 1bffffffffffffffff",
     "params 900003e9=0102 , handle 18446744073709551615,"},
    {OPERATION(begin_operation(KM_PURPOSE_SIGN, &kBlob, &kNullArray, &o.params, &o.handle)), 0x210F,
     0x250F, "a3 16 01 1a20000001 02 17 41aa", "a1 1822 07", "params null, handle 7,"},
    {OPERATION(begin_operation(KM_PURPOSE_SIGN, &kBlob, nullptr, nullptr, &o.handle)), 0x210F,
     0x250F, "a3 16 01 1a20000001 02 17 41aa", "a3 16 01 1a900003e9 420102 1822 07", "handle 7,"},
    {OPERATION(update_operation(16, &kOne, &kLong, &o.consumed, &o.params, &o.output)), 0x2111,
     0x2511, string("a4 1822 10") + kOneHex + "1823 594000" + repeat("5a", 16384),
     "a2 1824 41ee 1825 1affffffff", "output ee, params null, handle 0, consumed 4294967295,"},
    {OPERATION(update_operation(1, &kNullArray, nullptr, &o.consumed, nullptr, &o.output)), 0x2111,
     0x2511, "a1 1822 01", "a4 16 01 1a900003e9 4101 1824 40 1825 03",
     "output null, params null, handle 0, consumed 3,"},
    {OPERATION(finish_operation(16, nullptr, &kLong, &kSignature, &o.params, &o.output)), 0x2112,
     0x2512, "a3 1822 10 1823 594e20" + repeat("5a", 20000) + "1826 4173",
     "a9 16 07 1a10000002 03 1a600002bd 1b0000000100000000 1aa00001f6 3b7fffffffffffffff"
     "1a700001f7 f4 1ab0000001 00 1a900003ea 626869 1a800003ea 40 1824 42beef",
     "output beef, params 10000002=3 600002bd=100000000 a00001f6=8000000000000000 700001f7=1 "
     "b0000001=0 900003ea=6869 800003ea= ,"},
    {OPERATION(finish_operation(16, &kOne, nullptr, nullptr, nullptr, nullptr)), 0x2112, 0x2512,
     string("a3 1822 10") + kOneHex, "a3 16 01 1a900003e9 4101 1824 41ee", "output null,"},
    {OPERATION(abort_operation(UINT64_MAX)), 0x2113, 0x2513, "a1 1822 1bffffffffffffffff"},
    // A short seed and a long nonce.
    {OPERATION(get_hmac_sharing_parameters(&o.hmac)), 0x220E, 0x2706, "",
     "a2 1829 4171 182a 5821" + repeat("77", 33), "seed 71" + repeat("00", 31) + repeat("77", 32)},
    // The check value goes behind what is there.
    {OPERATION(compute_shared_hmac({o.hmac, {{1}, {2}}}, o.check)), 0x220F, 0x2707,
     "a1 182b 5880" + repeat("00", 64) + "01" + repeat("00", 31) + "02" + repeat("00", 31),
     "a1 182c 42c0c1", "check 99c0c1,"},
    {OPERATION(set_early_boot_ended()), 0x2119, 0x211C, "", "ff"},
    {OPERATION(set_device_locked(true)), 0x211A, 0x211D, "a1 182e f5"},
    {OPERATION(set_device_locked(false)), 0x211A, 0x211D, "a1 182e f4"},
};

// Those without a twin do not ask for the protocol.
bool hasTwin(const Row& row) {
    return row.command != 0x2119 && row.command != 0x211A;
}

TEST(CborOperations, AreThoseOfTheirTableAtEveryLevel) {
    ScriptedTransport& transport = ScriptedTransport::instance();
    for (uint32_t level : {0U, 1U, 2U}) {
        for (const Row& row : kRows) {
            SCOPED_TRACE(testing::Message() << row.call << ", level " << level);
            const auto security_level = static_cast<keymaster_security_level_t>(level);
            const Outcome done(row.run, hex(row.reply), security_level, !hasTwin(row));
            ASSERT_EQ(done.result, KM_ERROR_OK);
            EXPECT_EQ(transport.level, level);
            EXPECT_EQ(transport.callNames(),
                      hasTwin(row) ? "isLegacy hsm_init init sendCmd" : "hsm_init init sendCmd");
            EXPECT_EQ(transport.lastSent().command_id,
                      level == 2 ? row.strongbox_command : row.command);
            EXPECT_EQ(toHex(transport.lastSent().request), toHex(hex(row.request)));
            EXPECT_NE(done.outputs.all().find(row.outputs), string::npos) << done.outputs.all();
        }
    }
}

TEST(CborOperations, CutOffOrContinuedRepliesAreErrorsThatLeaveTheOutputs) {
    // Everything in the answer to a finish is optional: where it ends after an entry, or before the
    // first, it is what QCBOR says of a map that lacks entries.
    QCBORDecodeContext open;
    QCBORItem item;
    QCBORDecode_Init(&open, {"\xa1", 1}, QCBOR_DECODE_MODE_NORMAL);
    ASSERT_EQ(QCBORDecode_GetNext(&open, &item), QCBOR_SUCCESS);
    const int map_lacks_entries = QCBORDecode_Finish(&open);

    for (const Row& row : kRows) {
        if (row.outputs.empty()) continue;
        const bool finish = string(row.call).rfind("finish", 0) == 0;
        const Bytes whole = hex(row.reply);
        const size_t output_entry = toHex(whole).find("1824") / 2;
        for (size_t length = 0; length <= whole.size() + 1; ++length) {
            if (length == whole.size()) continue;
            SCOPED_TRACE(testing::Message() << row.call << ", " << length << " bytes");
            Bytes reply = whole;
            reply.resize(length);
            const Outcome done(row.run, reply);
            if (finish && (length <= 1 || length == output_entry)) {
                EXPECT_EQ(done.result, length == 0 ? 0 : map_lacks_entries);
                continue;
            }
            EXPECT_NE(done.result, KM_ERROR_OK);
            EXPECT_EQ(done.outputs.all(), done.before);
        }
    }
}

TEST(CborOperations, EveryStepsErrorEndsTheCall) {
    ScriptedTransport& transport = ScriptedTransport::instance();
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.call);
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

TEST(CborOperations, BadResponsesGiveTheirCode) {
    const Operation begin = [](auto& d, auto& o) {
        return d.begin_operation(KM_PURPOSE_SIGN, &kBlob, nullptr, &o.params, &o.handle);
    };
    const Operation generate = [](auto& d, auto& o) {
        return d.generate_key(nullptr, &o.key_blob, nullptr);
    };
    const Operation attest = [](auto& d, auto& o) { return d.attest_key(&kBlob, &kOne, &o.chain); };
    const Operation finish = [](auto& d, auto& o) {
        return d.finish_operation(1, nullptr, nullptr, nullptr, &o.params, &o.output);
    };
    const struct {
        const char* name;
        Operation run;
        const char* reply;
        int result;
        size_t announced;
    } cases[] = {
        {"not a map", generate, "80", -1, 0},
        {"not a map, before an optional entry", begin, "80", 6, 0},
        {"nothing, for which a finish settles", finish, "", 0, 0},
        {"another order", attest, "a2 1821 4101 1820 01", 1, 0},
        {"parameters behind the handle", begin, "a2 1822 07 16 00", 16, 0},
        {"a count above 32 bits", begin, "a2 16 1b0000000100000000 1822 07", 1, 0},
        {"a certificate missing", attest, "a2 1820 02 1821 41c1", 6, 0},
        {"certificates that no response holds", attest, "a2 1820 1a1fffffff 1821 41c1", 6, 0},
        {"certificates that no memory holds", attest, "a2 1820 1a20000000 1821 41c1", -41, 0},
        {"a negative label", begin, "a3 16 01 3a6ffffda6 4101 1822 07", -40, 1},
        {"a text label", begin, "a3 16 01 6161 01 1822 07", -40, 1},
        {"a label above 32 bits", begin, "a3 16 01 1b0000000110000002 03 1822 07", -40, 1},
        {"the invalid tag", begin, "a3 16 01 00 01 1822 07", -40, 1},
        {"an integer for bytes", begin, "a3 16 01 1a900003e9 01 1822 07", -40, 1},
        {"bad after a good one", begin, "a4 16 02 1a900003e9 4101 00 01 1822 07", -40, 2},
        {"a parameter missing", begin, "a2 16 02 1a30000003 01", -40, 2},
        {"parameters that no response holds", begin, "a2 16 1a0fffffff 1822 07", -40, 0x0FFFFFFF},
        {"parameters that no memory holds", begin, "a2 16 1a10000000 1822 07", -41, 0x10000000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Outcome done(c.run, hex(c.reply));
        EXPECT_EQ(done.result, c.result);
        EXPECT_EQ(done.outputs.all(), done.before);
        EXPECT_EQ(done.outputs.params.length, c.announced);
    }
}

const keymaster_key_blob_t kEmptyBlob = {kBytes, 0};
const keymaster_key_blob_t kNullBlob = {nullptr, 1};
const keymaster_blob_t kEmptyData = {kBytes, 0};
const keymaster_key_param_set_t kEmptySet = {&kKeySize, 0};
keymaster_key_param_t kInvalidParam = {KM_TAG_INVALID, {}};
const keymaster_key_param_set_t kInvalidSet = {&kInvalidParam, 1};
const char kToEncoding[] = "isLegacy hsm_init init";
keymaster_key_characteristics_t characteristics;
keymaster_cert_chain_t no_entries = {nullptr, 1};

TEST(CborOperations, AreCheckedBeforeAnythingIsSent) {
    const struct {
        const char* call;
        Operation run;
        int result;
        const char* calls = "isLegacy";
        const char* lengths = "5 5 5";  // of parameters, output and input consumed
    } cases[] = {
        {OPERATION(generate_key(&kOne, nullptr, nullptr)), -27},
        {OPERATION(generate_key(&kInvalidSet, &o.key_blob, nullptr)), -21, kToEncoding},
        {OPERATION(get_key_characteristics(&kEmptyBlob, nullptr, nullptr, nullptr)), -32},
        {OPERATION(get_key_characteristics(&kBlob, nullptr, nullptr, nullptr)), -27},
        {OPERATION(import_key(nullptr, KM_KEY_FORMAT_RAW, &kInput, &o.key_blob, nullptr)), -32},
        {OPERATION(import_key(&kOne, KM_KEY_FORMAT_RAW, &kEmptyData, nullptr, nullptr)), -32},
        {OPERATION(import_key(&kOne, KM_KEY_FORMAT_RAW, &kInput, nullptr, nullptr)), -27},
        {OPERATION(import_wrapped_key(&kOne, 0, 0, {}, {}, {}, nullptr, nullptr)), -27},
        {OPERATION(export_key(KM_KEY_FORMAT_RAW, &kNullBlob, nullptr, nullptr, nullptr)), -32},
        {OPERATION(export_key(KM_KEY_FORMAT_RAW, &kBlob, nullptr, nullptr, nullptr)), -27},
        // Application data alone does not encode.
        {OPERATION(export_key(KM_KEY_FORMAT_RAW, &kBlob, &kEmptyData, &kInput, &o.output)), -21,
         kToEncoding},
        {OPERATION(attest_key(&kBlob, nullptr, &o.chain)), -32},
        {OPERATION(attest_key(&kBlob, &kOne, nullptr)), -32},
        {OPERATION(attest_key(&kBlob, &kOne, &no_entries)), -27},
        {OPERATION(attest_key(&kBlob, &kOne, (o.chain.entry_count = 0, &o.chain))), -27},
        {OPERATION(upgrade_key(&kBlob, &kEmptySet, nullptr)), -32},
        {OPERATION(upgrade_key(&kBlob, &kOne, nullptr)), -27},
        {OPERATION(begin_operation(KM_PURPOSE_SIGN, &kNullBlob, &kOne, nullptr, nullptr)), -32},
        {OPERATION(begin_operation(KM_PURPOSE_SIGN, &kEmptyBlob, &kOne, &o.params, nullptr)), -27,
         "isLegacy", "0 5 5"},
        {OPERATION(update_operation(1, &kOne, &kInput, nullptr, &o.params, &o.output)), -27},
        {OPERATION(update_operation(1, &kInvalidSet, nullptr, &o.consumed, &o.params, &o.output)),
         -21, kToEncoding, "0 0 0"},
        {OPERATION(finish_operation(1, &kInvalidSet, nullptr, nullptr, &o.params, &o.output)), -21,
         kToEncoding, "0 0 5"},
        {OPERATION(get_hmac_sharing_parameters(nullptr)), -27},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.call);
        ScriptedTransport::instance().reset();
        KeymasterHalDevice device(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
        Outputs o;
        o.params.length = o.output.data_length = o.consumed = 5;
        EXPECT_EQ(c.run(device, o), c.result);
        EXPECT_EQ(ScriptedTransport::instance().callNames(), c.calls);
        EXPECT_EQ(std::to_string(o.params.length) + " " + std::to_string(o.output.data_length) +
                      " " + std::to_string(o.consumed),
                  c.lengths);
    }
}

TEST(CborOperations, KeysAreReadWithTheEarlyBootByte) {
    static const Bytes blob = blobOf(352, 4, 4, "24:4=2 319:4=1 351:1=1");
    static const keymaster_key_blob_t given = {blob.data(), blob.size()};
    const struct {
        const char* call;
        Operation run;
        const char* calls = "isLegacy hsm_init init sendCmd";
    } cases[] = {
        {OPERATION(generate_key(&kOne, &o.key_blob, &characteristics))},
        {OPERATION(import_key(&kOne, KM_KEY_FORMAT_RAW, &kInput, &o.key_blob, &characteristics))},
        {OPERATION(import_wrapped_key(&kOne, 0, 0, {}, {}, {}, &o.key_blob, &characteristics))},
        {OPERATION(get_key_characteristics(&given, nullptr, nullptr, &characteristics)),
         "isLegacy"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.call);
        const Outcome done(c.run, hex("a1 17 590160") + blob);
        EXPECT_EQ(done.result, KM_ERROR_OK);
        EXPECT_EQ(ScriptedTransport::instance().callNames(), c.calls);
        EXPECT_EQ(linesOf(characteristics.hw_enforced),
                  (std::vector<std::string>{"10000130=1", "70000131=1"}));
        keymaster_free_characteristics(&characteristics);
    }
}

}  // namespace
