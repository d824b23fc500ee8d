// What goes over the wire, against words written out by hand.

#include <KeymasterBuffer.h>

#include "LegacyDevice.h"

namespace lumo::test {
namespace {

using keymasterdevice::KeymasterHalDevice;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Params = std::vector<keymaster_key_param_t>;

constexpr uint32_t kRefused = static_cast<uint32_t>(KM_ERROR_INVALID_KEY_BLOB);

constexpr auto kTagOfType = [](uint32_t type) {
    return static_cast<keymaster_tag_t>(type << 28 | 1);
};

class LegacyRecords : public LegacyDevice {};

TEST_F(LegacyRecords, ParametersKeepWhatTheirTypesDoNotWrite) {
    const Bytes five = hex("a1 a2 a3 a4 a5");
    const Bytes three = hex("b1 b2 b3");
    const auto bytes = [](const Bytes& value) {
        return keymaster_param_blob(KM_TAG_NONCE, value.data(), value.size());
    };
    const auto unset = [](keymaster_tag_t tag) { return keymaster_param_int(tag, 0); };
    keymaster_key_param_t no = keymaster_param_bool(KM_TAG_EXPORTABLE);
    no.boolean = false;
    const keymaster_key_param_t yes = keymaster_param_bool(KM_TAG_EXPORTABLE);
    const keymaster_key_param_t size = keymaster_param_int(KM_TAG_KEY_SIZE, 256);
    const keymaster_key_param_t exponent =
        keymaster_param_long(KM_TAG_RSA_PUBLIC_EXPONENT, 0x1122334455667788);

    struct Case {
        const char* name;
        Params params;
        Bytes sent;  // behind the 12-byte header
    };
    const Case cases[] = {
        {"32 bits", {size}, words({0x30000003, 256, 0xFFFFFFFF})},
        {"true", {yes}, words({0x7000025A, 0xFFFFFF01, 0xFFFFFFFF})},
        {"false", {no}, words({0x7000025A, 0xFFFFFF00, 0xFFFFFFFF})},
        {"32 bits after 64",
         {exponent, size},
         words({0x500000C8, 0x55667788, 0x11223344, 0x30000003, 256, 0x11223344})},
        {"boolean after 64 bits",
         {keymaster_param_date(KM_TAG_ACTIVE_DATETIME, 0x0102030405060708), yes},
         words({0x60000190, 0x05060708, 0x01020304, 0x7000025A, 0x05060701, 0x01020304})},
        {"repeated values",
         {keymaster_param_enum(KM_TAG_PURPOSE, 2), keymaster_param_int(kTagOfType(4), 9),
          keymaster_param_long(KM_TAG_USER_SECURE_ID, 1)},
         words({0x20000001, 2, 0xFFFFFFFF, 0x40000001, 9, 0xFFFFFFFF, 0xA00001F6, 1, 0})},
        {"bytes behind the array",
         {bytes(five), bytes(three)},
         words({0x900003E9, 36, 5, 0x900003E9, 41, 3}) + five + three},
        {"bignum, then a boolean over its offset",
         {keymaster_param_blob(kTagOfType(8), three.data(), 3), no},
         words({0x80000001, 36, 3, 0x7000025A, 0, 3}) + three},
        {"empty bytes",
         {keymaster_param_blob(KM_TAG_NONCE, nullptr, 0)},
         words({0x900003E9, 24, 0})},
        {"unknown type first", {unset(kTagOfType(11))}, fill(12, 0xFF)},
        {"unknown type later",
         {size, unset(kTagOfType(15))},
         words({0x30000003, 256, 0xFFFFFFFF, 0x30000003, 256, 0xFFFFFFFF})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        restart();
        Params params = c.params;
        const keymaster_key_param_set_t set = setOf(params);
        script().willReply(words({0}));
        EXPECT_EQ(device_.legacy_configure(&set), KM_ERROR_OK);
        const auto count = static_cast<uint32_t>(params.size());
        EXPECT_EQ(toHex(request()), toHex(words({0x116, 12, count}) + c.sent));
    }
}

TEST_F(LegacyRecords, ARefusedParameterSendsNothing) {
    Params invalid = {keymaster_param_int(KM_TAG_KEY_SIZE, 1),
                      keymaster_param_int(KM_TAG_INVALID, 0)};
    Params no_bytes = {keymaster_param_blob(KM_TAG_NONCE, nullptr, 1)};
    Params too_long = {keymaster_param_blob(KM_TAG_NONCE, invalid.front().blob.data, 0)};
    const Bytes most = fill(kSharedBytes, 1);
    too_long[0].blob = blobOf(most);
    const std::pair<Params*, keymaster_error_t> cases[] = {
        {&invalid, KM_ERROR_INVALID_TAG},
        {&no_bytes, KM_ERROR_UNEXPECTED_NULL_POINTER},
        {&too_long, KM_ERROR_INSUFFICIENT_BUFFER_SPACE},
    };
    for (const auto& [params, expected] : cases) {
        const keymaster_key_param_set_t set = setOf(*params);
        EXPECT_EQ(device_.legacy_configure(&set), expected);
    }
    const keymaster_key_param_set_t endless = {invalid.data(), size_t{1} << 32};
    EXPECT_EQ(device_.legacy_configure(&endless), KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    EXPECT_EQ(script().sentCount(), 0u);
    EXPECT_THAT(log_.texts(), IsEmpty());
}

// A command, what it sends behind its identifier, and what the log says of its failures.
struct Command {
    const char* method;
    const char* send_failure;
    bool brings_up_link;
    uint32_t id;
    uint32_t strongbox_id;  // 0: refused
    std::function<keymaster_error_t(KeymasterHalDevice&)> call;
    std::vector<uint32_t> header;
    Bytes data;
};
Command row(const char* method, const char* send_failure, bool brings_up_link, uint32_t id,
            uint32_t strongbox_id, std::function<keymaster_error_t(KeymasterHalDevice&)> call,
            std::vector<uint32_t> header, Bytes data) {
    return {method,       send_failure,    brings_up_link,    id,
            strongbox_id, std::move(call), std::move(header), std::move(data)};
}
// A row's call, and its names and identifiers where the two log lines are the same.
#define CALL(...) [&](KeymasterHalDevice& device) { return device.__VA_ARGS__; }
#define LINKED(name) #name, #name, true
#define DIRECT(name) #name, #name, false

TEST_F(LegacyRecords, EveryCommandSendsItsRecordAndLogsItsFailures) {
    const Bytes five = hex("a1 a2 a3 a4 a5");
    const Bytes three = hex("b1 b2 b3");
    const Bytes two = hex("c1 c2");
    const keymaster_key_blob_t key = keyOf(five);
    const keymaster_blob_t id = blobOf(three);
    const keymaster_blob_t data = blobOf(two);
    const keymaster_blob_t none = {two.data(), 0};
    Params params = {keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_AES)};
    const keymaster_key_param_set_t set = setOf(params);
    const Bytes param = words({0x10000002, 32, 0xFFFFFFFF});
    const uint64_t handle = 0x1122334455667788;
    const uint32_t low = 0x55667788;
    const uint32_t high = 0x11223344;
    hmac_sharing_params_t share = {};
    share.nonce[31] = 2;
    const Bytes share_bytes = fill(63, 0) + hex("02");
    std::vector<uint32_t> attestation = {92, 5, 97, 1};
    attestation.resize(22, kUntouched);
    Outputs out;
    std::vector<uint8_t> check;
    verification_token_t token = {};
    bool dates = false;

    const Command commands[] = {
        row("legacy_generate_key", "generate_key_common", true, 0x108, 0x508,
            CALL(legacy_generate_key(&set, &out.key, nullptr)), {12, 1}, param),
        row(LINKED(legacy_get_key_characteristics), 0x109, 0x509,
            CALL(legacy_get_key_characteristics(&key, &id, &data, &out.characteristics)),
            {28, 5, 33, 3, 36, 2}, five + three + two),
        row(LINKED(legacy_get_key_characteristics), 0x109, 0x509,
            CALL(legacy_get_key_characteristics(&key, &none, nullptr, &out.characteristics)),
            {28, 5, 0, 0, 0, 0}, five),
        row(LINKED(legacy_import_key), 0x10B, 0x50B,
            CALL(legacy_import_key(&set, KM_KEY_FORMAT_RAW, &id, &out.key, nullptr)),
            {3, 24, 1, 36, 3}, param + three),
        row(LINKED(legacy_export_key), 0x10C, 0x50C,
            CALL(legacy_export_key(KM_KEY_FORMAT_X509, &key, &id, &data, &out.data)),
            {32, 5, 0, 37, 3, 40, 2}, five + three + two),
        row(LINKED(legacy_delete_key), 0x10D, 0x50D, CALL(legacy_delete_key(&key)), {12, 5}, five),
        row(LINKED(legacy_delete_all_keys), 0x10E, 0x50E, CALL(legacy_delete_all_keys()), {}, {}),
        row("legacy_begin_operation", "Begin send cmd failed", true, 0x10F, 0x50F,
            CALL(legacy_begin_operation(KM_PURPOSE_VERIFY, &key, &set, &out.params, &out.handle)),
            {3, 24, 5, 29, 1}, five + param),
        row("legacy_update_operation", "Update send cmd failed", true, 0x111, 0x511,
            CALL(legacy_update_operation(handle, &set, &id, &out.consumed, nullptr, nullptr)),
            {low, high, 28, 1, 40, 3}, param + three),
        row("legacy_finish_operation", "Finish send cmd failed", true, 0x112, 0x512,
            CALL(legacy_finish_operation(handle, &set, &id, &data, nullptr, nullptr)),
            {low, high, 36, 1, 48, 3, 51, 2}, param + three + two),
        row("legacy_finish_operation", "Finish send cmd failed", true, 0x112, 0x512,
            CALL(legacy_finish_operation(handle, nullptr, nullptr, nullptr, nullptr, nullptr)),
            {low, high, 0, 0, 0, 0, 0, 0}, {}),
        row(LINKED(legacy_abort_operation), 0x113, 0x513, CALL(legacy_abort_operation(handle)),
            {low, high}, {}),
        row("legacy_upgrade_key", "Upgrade key send cmd failed", true, 0x114, 0x514,
            CALL(legacy_upgrade_key(&key, &set, &out.key)), {20, 5, 25, 1}, five + param),
        row("legacy_attest_key", "Attest key send cmd failed", true, 0x115, 0x515,
            CALL(legacy_attest_key(&key, &set, &out.chain)), attestation, five + param),
        row(DIRECT(legacy_configure), 0x116, 0x116, CALL(legacy_configure(nullptr)), {0, 0}, {}),
        row(LINKED(legacy_import_wrapped_key), 0x117, 0x517,
            CALL(legacy_import_wrapped_key(&set, handle, 9, fill(10, 1), fill(20, 2), fill(30, 3),
                                           &out.key, nullptr)),
            {low, high, 9, 0, 52, 20, 72, 10, 82, 30, 112, 1},
            fill(20, 2) + fill(10, 1) + fill(30, 3) + param),
        row(LINKED(legacy_import_wrapped_key), 0x117, 0x517,
            CALL(legacy_import_wrapped_key(nullptr, 0, 0, {}, {}, {}, &out.key, nullptr)),
            {0, 0, 0, 0, 52, 0, 52, 0, 52, 0, 0, 0}, {}),
        row(LINKED(legacy_destroy_device_ids), 0x20B, 0x704, CALL(legacy_destroy_device_ids()), {0},
            {}),
        row(DIRECT(legacy_get_hmac_sharing_parameters), 0x20E, 0x706,
            CALL(legacy_get_hmac_sharing_parameters(&share)), {}, {}),
        row(DIRECT(legacy_compute_shared_hmac), 0x20F, 0x707,
            CALL(legacy_compute_shared_hmac({share, share}, check)), {12, 2},
            share_bytes + share_bytes),
        row(DIRECT(legacy_get_date_support), 0x215, 0x215, CALL(legacy_get_date_support(&dates)),
            {kUntouched, kUntouched}, {}),
        row(DIRECT(LegacyVerifyAuthorization), 0x118, 0,
            CALL(LegacyVerifyAuthorization(handle, &token)), {low, high}, {}),
    };
    for (const Command& command : commands) {
        SCOPED_TRACE(command.method);
        restart();
        LogCapture log;
        std::vector<std::string> lines;
        script().hsm_result = KM_ERROR_SECURE_HW_BUSY;
        if (command.brings_up_link) {
            EXPECT_EQ(command.call(device_), KM_ERROR_SECURE_HW_BUSY);
            EXPECT_EQ(script().callNames(), "hsm_init");
            lines = {command.method, "ret: -48", "resp->status: 0"};
            script().hsm_result = KM_ERROR_OK;
        }
        script().no_shared_buffer = true;
        EXPECT_EQ(command.call(device_), KM_ERROR_INVALID_ARGUMENT);
        lines.push_back("req handle NULL");
        script().no_shared_buffer = false;
        script().willReply(words({kRefused}));
        EXPECT_EQ(command.call(device_), KM_ERROR_INVALID_KEY_BLOB);
        lines.insert(lines.end(), {command.send_failure, "ret: 0", "resp->status: -33"});
        for (KeymasterHalDevice* device : {&device_, &strongbox_}) {
            const uint32_t cmd = device == &device_ ? command.id : command.strongbox_id;
            if (cmd == 0) continue;
            script().reset();
            script().replies.push_back({kSendFails, words({kRefused})});
            EXPECT_EQ(command.call(*device), kSendFails);
            EXPECT_EQ(toHex(request()), toHex(words({cmd}) + words(command.header) + command.data));
            lines.insert(lines.end(), {command.send_failure, "ret: 7", "resp->status: -33"});
        }
        EXPECT_EQ(log.texts(), lines);
        EXPECT_EQ(log.lines().back().tag, "KeyMasterHalDevice");
        EXPECT_EQ(log.lines().back().priority, 6);
    }
}

TEST_F(LegacyRecords, AttestationWritesDatesOfLongBlobsWithHeaderOnly) {
    // 2021-03-04 05:06:07 UTC, with the flag of the active date clear.
    const Bytes active = hex("ff fd a0 fb 77 01 00 00");
    const auto dated = [&](size_t size, uint32_t zero, bool expires) {
        Bytes blob = plainKeyBlob(size);
        blob[4] = static_cast<uint8_t>(zero);
        std::copy(active.begin(), active.end(), blob.begin() + 278);
        blob[295] = expires ? 1 : 0;
        std::fill_n(blob.begin() + 296, 8, uint8_t{0});
        return blob;
    };
    const std::vector<uint32_t> old(9, kUntouched);
    const Bytes seconds = words({7, 6, 5, 4, 3, 2021, kUntouched, kUntouched, kUntouched});
    const Bytes epoch = words({0, 0, 0, 1, 1, 1970, kUntouched, kUntouched, kUntouched});
    const Bytes never = words({59, 59, 23, 31, 12, 1969, kUntouched, kUntouched, kUntouched});
    const struct {
        Bytes blob;
        Bytes dates;
    } cases[] = {
        {dated(395, 0, true), seconds + epoch},
        {dated(395, 0, false), seconds + never},
        {dated(394, 0, true), words(old) + words(old)},
        {dated(395, 1, true), words(old) + words(old)},
    };
    for (const auto& c : cases) {
        restart();
        const keymaster_key_blob_t key = keyOf(c.blob);
        const keymaster_key_param_set_t none = {};
        Outputs out;
        script().willReply(words({0, 0, 20, 0, 0}));
        EXPECT_EQ(device_.legacy_attest_key(&key, &none, &out.chain), KM_ERROR_OK);
        const auto size = static_cast<uint32_t>(c.blob.size());
        EXPECT_EQ(toHex(request()), toHex(words({0x115, 92, size, 0, 0}) + c.dates + c.blob));
    }
}

TEST_F(LegacyRecords, RootOfTrustGoesOutAsTwoRequestsThroughOneBuilder) {
    Bytes root = fill(32, 0x52);
    Bytes boot_state = hex("d1 d2 d3 d4 d5");
    script().willReply(words({0}));
    script().willReply(words({0}));
    EXPECT_EQ(device_.SetRot(root.data(), nullptr, true, boot_state.data(), KM_BOOT_STATE_RED, 9,
                             0x0A0B0C0D),
              KM_ERROR_OK);
    ASSERT_EQ(script().callNames(), "vaultlink_dev_init send_cmd vaultlink_dev_init send_cmd");
    EXPECT_EQ(toHex(script().calls[1].request), toHex(words({0x201, 12, 32}) + root));
    // The transport hands out the same region again: behind the new header stand the rest of the
    // first request and a copy of what its first 16 bytes were.
    const Bytes body = words({1}) + hex("d1 d2 d3 d4") + fill(28, 0xFF) + words({3, 9, 0x0A0B0C0D});
    EXPECT_EQ(toHex(request()), toHex(words({0x208, 0, 16, 48}) + fill(28, 0x52) +
                                      words({0x201, 12, 32}) + fill(4, 0x52) + body));
    EXPECT_EQ(script().lastSent().response_before.size(), 40852u);
}

TEST_F(LegacyRecords, RootOfTrustStopsAtTheFirstFailure) {
    Bytes root = fill(32, 0);
    const auto set = [&](uint8_t* rot) {
        return strongbox_.SetRot(rot, nullptr, false, root.data(), KM_BOOT_STATE_GREEN, 0, 0);
    };
    script().willReply(words({static_cast<uint32_t>(-1)}));
    EXPECT_EQ(set(root.data()), KM_ERROR_ROOT_OF_TRUST_ALREADY_SET);
    EXPECT_EQ(script().sentCount(), 1u);
    EXPECT_EQ(set(nullptr), KM_ERROR_UNEXPECTED_NULL_POINTER);
    script().no_shared_buffer = true;
    EXPECT_EQ(set(root.data()), KM_ERROR_INVALID_ARGUMENT);
    EXPECT_THAT(log_.texts(), ElementsAre("LegacySetRot", "ret: 0", "resp->status: -1",
                                          "set_rot_req handle NULL"));
}

TEST_F(LegacyRecords, ARequestThatLeavesNoRoomIsStillSent) {
    const Bytes blob = fill(kSharedBytes - 12, 1);
    const keymaster_key_blob_t key = keyOf(blob);
    EXPECT_EQ(device_.legacy_delete_key(&key), KM_ERROR_UNKNOWN_ERROR);
    EXPECT_EQ(request().size(), kSharedBytes);
    script().replies.push_back({kSendFails, {}});
    EXPECT_EQ(device_.legacy_delete_key(&key), kSendFails);
    EXPECT_THAT(log_.texts(), ElementsAre("legacy_delete_key", "ret: 7", "resp->status: 0"));

    const Bytes longer = fill(kSharedBytes - 11, 1);
    const keymaster_key_blob_t too_long = keyOf(longer);
    EXPECT_EQ(device_.legacy_delete_key(&too_long), KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    EXPECT_EQ(script().sentCount(), 2u);
}

}  // namespace
}  // namespace lumo::test
