// What goes over the wire, against words written out by hand.

#include "LegacyDevice.h"

namespace lumo::test {
namespace {

using keymasterdevice::KeymasterHalDevice;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Params = std::vector<keymaster_key_param_t>;

constexpr uint32_t kRefused = static_cast<uint32_t>(KM_ERROR_INVALID_KEY_BLOB);

constexpr keymaster_tag_t tagOfType(uint32_t type) {
    return static_cast<keymaster_tag_t>(type << 28 | 1);
}

class LegacyRecords : public LegacyDevice {};

TEST_F(LegacyRecords, ParametersKeepWhatTheirTypesDoNotWrite) {
    const Bytes five = hex("a1 a2 a3 a4 a5");
    const Bytes three = hex("b1 b2 b3");
    const auto five_bytes = keymaster_param_blob(KM_TAG_NONCE, five.data(), 5);
    const auto three_bytes = keymaster_param_blob(tagOfType(8), three.data(), 3);
    const auto no_bytes = keymaster_param_blob(KM_TAG_NONCE, nullptr, 0);
    const auto yes = keymaster_param_bool(KM_TAG_EXPORTABLE);
    auto no = yes;
    no.boolean = false;
    const auto size = keymaster_param_int(KM_TAG_KEY_SIZE, 256);
    const auto repeated = keymaster_param_int(tagOfType(4), 9);
    const auto exponent = keymaster_param_long(KM_TAG_RSA_PUBLIC_EXPONENT, 0x1122334455667788);
    const auto date = keymaster_param_date(KM_TAG_ACTIVE_DATETIME, 0x0102030405060708);
    const auto user = keymaster_param_long(KM_TAG_USER_SECURE_ID, 1);
    const auto purpose = keymaster_param_enum(KM_TAG_PURPOSE, 2);

    const struct {
        Params params;
        Bytes sent;  // behind the 12-byte header
    } cases[] = {
        {{yes}, words({0x7000025A, 0xFFFFFF01, 0xFFFFFFFF})},
        {{no}, words({0x7000025A, 0xFFFFFF00, 0xFFFFFFFF})},
        {{exponent, size},
         words({0x500000C8, 0x55667788, 0x11223344, 0x30000003, 256, 0x11223344})},
        {{date, yes},
         words({0x60000190, 0x05060708, 0x01020304, 0x7000025A, 0x05060701, 0x01020304})},
        {{purpose, repeated, user},
         words({0x20000001, 2, 0xFFFFFFFF, 0x40000001, 9, 0xFFFFFFFF, 0xA00001F6, 1, 0})},
        {{five_bytes, three_bytes}, words({0x900003E9, 36, 5, 0x80000001, 41, 3}) + five + three},
        {{no_bytes, no}, words({0x900003E9, 36, 0, 0x7000025A, 0, 0})},
        // Types that do not exist send the record before them once more.
        {{keymaster_param_int(tagOfType(11), 0)}, fill(12, 0xFF)},
        {{size, keymaster_param_int(tagOfType(15), 0)},
         words({0x30000003, 256, 0xFFFFFFFF, 0x30000003, 256, 0xFFFFFFFF})},
    };
    for (const auto& c : cases) {
        Params params = c.params;
        const keymaster_key_param_set_t set = setOf(params);
        script().willReply(words({0}));
        EXPECT_EQ(device_.legacy_configure(&set), KM_ERROR_OK);
        const auto count = static_cast<uint32_t>(params.size());
        EXPECT_EQ(toHex(request()), toHex(words({0x116, 12, count}) + c.sent));
    }
}

TEST_F(LegacyRecords, ARefusedParameterSendsNothing) {
    const Bytes most = fill(kSharedBytes, 1);
    Params invalid = {keymaster_param_int(KM_TAG_KEY_SIZE, 1),
                      keymaster_param_int(KM_TAG_INVALID, 0)};
    Params no_bytes = {keymaster_param_blob(KM_TAG_NONCE, nullptr, 1)};
    Params too_long = {keymaster_param_blob(KM_TAG_NONCE, most.data(), most.size())};
    const std::pair<keymaster_key_param_set_t, keymaster_error_t> cases[] = {
        {setOf(invalid), KM_ERROR_INVALID_TAG},
        {setOf(no_bytes), KM_ERROR_UNEXPECTED_NULL_POINTER},
        {setOf(too_long), KM_ERROR_INSUFFICIENT_BUFFER_SPACE},
        {{invalid.data(), size_t{1} << 32}, KM_ERROR_INSUFFICIENT_BUFFER_SPACE},
    };
    for (const auto& [set, expected] : cases) EXPECT_EQ(device_.legacy_configure(&set), expected);
    EXPECT_EQ(script().sentCount(), 0u);
    EXPECT_THAT(log_.texts(), IsEmpty());
}

// A command, what it sends behind its identifier, and the first log line of a failed send.
struct Command {
    std::function<keymaster_error_t(KeymasterHalDevice&)> call;
    const char* method;
    bool brings_up_link;
    uint32_t id;
    uint32_t strongbox_id;  // 0: refused
    std::vector<uint32_t> header;
    Bytes data;
    const char* send_failure;  // null: the method's name
};
Command row(std::function<keymaster_error_t(KeymasterHalDevice&)> call, const char* method,
            bool brings_up_link, uint32_t id, uint32_t strongbox_id, std::vector<uint32_t> header,
            Bytes data = {}, const char* send_failure = nullptr) {
    return {call, method, brings_up_link, id, strongbox_id, header, data, send_failure};
}
#define CALL(method, ...) \
    [&](KeymasterHalDevice& device) { return device.method(__VA_ARGS__); }, #method

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
    const Bytes shares = fill(63, 0) + hex("02") + fill(63, 0) + hex("02");
    std::vector<uint32_t> attestation = {92, 5, 97, 1};
    attestation.resize(22, kUntouched);
    Outputs out;
    Bytes check;
    verification_token_t token = {};
    bool dates = false;

    const Command commands[] = {
        row(CALL(legacy_generate_key, &set, &out.key, nullptr), true, 0x108, 0x508, {12, 1}, param,
            "generate_key_common"),
        row(CALL(legacy_get_key_characteristics, &key, &id, &data, &out.characteristics), true,
            0x109, 0x509, {28, 5, 33, 3, 36, 2}, five + three + two),
        row(CALL(legacy_import_key, &set, KM_KEY_FORMAT_RAW, &id, &out.key, nullptr), true, 0x10B,
            0x50B, {3, 24, 1, 36, 3}, param + three),
        row(CALL(legacy_export_key, KM_KEY_FORMAT_X509, &key, &id, &data, &out.data), true, 0x10C,
            0x50C, {32, 5, 0, 37, 3, 40, 2}, five + three + two),
        row(CALL(legacy_delete_key, &key), true, 0x10D, 0x50D, {12, 5}, five),
        row(CALL(legacy_delete_all_keys), true, 0x10E, 0x50E, {}),
        row(CALL(legacy_begin_operation, KM_PURPOSE_VERIFY, &key, &set, &out.params, &out.handle),
            true, 0x10F, 0x50F, {3, 24, 5, 29, 1}, five + param, "Begin send cmd failed"),
        row(CALL(legacy_update_operation, handle, &set, &id, &out.consumed, nullptr, nullptr), true,
            0x111, 0x511, {low, high, 28, 1, 40, 3}, param + three, "Update send cmd failed"),
        row(CALL(legacy_finish_operation, handle, &set, &id, &data, nullptr, nullptr), true, 0x112,
            0x512, {low, high, 36, 1, 48, 3, 51, 2}, param + three + two, "Finish send cmd failed"),
        row(CALL(legacy_finish_operation, handle, nullptr, &none, nullptr, nullptr, nullptr), true,
            0x112, 0x512, {low, high, 0, 0, 0, 0, 0, 0}, {}, "Finish send cmd failed"),
        row(CALL(legacy_abort_operation, handle), true, 0x113, 0x513, {low, high}),
        row(CALL(legacy_upgrade_key, &key, &set, &out.key), true, 0x114, 0x514, {20, 5, 25, 1},
            five + param, "Upgrade key send cmd failed"),
        row(CALL(legacy_attest_key, &key, &set, &out.chain), true, 0x115, 0x515, attestation,
            five + param, "Attest key send cmd failed"),
        row(CALL(legacy_configure, nullptr), false, 0x116, 0x116, {0, 0}),
        row(CALL(legacy_import_wrapped_key, &set, handle, 9, fill(10, 1), fill(20, 2), {}, &out.key,
                 nullptr),
            true, 0x117, 0x517, {low, high, 9, 0, 52, 20, 72, 10, 82, 0, 82, 1},
            fill(20, 2) + fill(10, 1) + param),
        row(CALL(legacy_destroy_device_ids), true, 0x20B, 0x704, {0}),
        row(CALL(legacy_get_hmac_sharing_parameters, &share), false, 0x20E, 0x706, {}),
        row(CALL(legacy_compute_shared_hmac, {share, share}, check), false, 0x20F, 0x707, {12, 2},
            shares),
        row(CALL(legacy_get_date_support, &dates), false, 0x215, 0x215, {kUntouched, kUntouched}),
        row(CALL(LegacyVerifyAuthorization, handle, &token), false, 0x118, 0, {low, high}),
    };
    for (const Command& command : commands) {
        SCOPED_TRACE(command.method);
        const char* failure = command.send_failure ? command.send_failure : command.method;
        LogCapture log;
        std::vector<std::string> lines;
        if (command.brings_up_link) {
            restart();
            script().hsm_result = KM_ERROR_SECURE_HW_BUSY;
            EXPECT_EQ(command.call(device_), KM_ERROR_SECURE_HW_BUSY);
            EXPECT_EQ(script().callNames(), "hsm_init");
            lines = {command.method, "ret: -48", "resp->status: 0"};
        }
        restart();
        script().shared_buffers = 0;
        EXPECT_EQ(command.call(device_), KM_ERROR_INVALID_ARGUMENT);
        lines.push_back("req handle NULL");
        for (KeymasterHalDevice* device : {&device_, &strongbox_}) {
            const uint32_t cmd = device == &device_ ? command.id : command.strongbox_id;
            if (cmd == 0) continue;
            restart();
            script().replies = {{kSendFails, words({kRefused})}};
            EXPECT_EQ(command.call(*device), kSendFails);
            EXPECT_EQ(toHex(request()), toHex(words({cmd}) + words(command.header) + command.data));
            lines.insert(lines.end(), {failure, "ret: 7", "resp->status: -33"});
        }
        EXPECT_EQ(log.texts(), lines);
        EXPECT_EQ(log.lines().back().tag, "KeyMasterHalDevice");
        EXPECT_EQ(log.lines().back().priority, 6);
    }
}

TEST_F(LegacyRecords, AttestationDatesGoOutInSixWordsEach) {
    // 2021-03-04 05:06:07 UTC, with the flag of the active date clear.
    const Bytes active = hex("ff fd a0 fb 77 01 00 00");
    Bytes blob = plainKeyBlob();
    std::copy(active.begin(), active.end(), blob.begin() + 278);
    const keymaster_key_blob_t key = keyOf(blob);
    const keymaster_key_param_set_t none = {};
    Outputs out;
    script().willReply(words({0, 0, 20, 0, 0}));
    EXPECT_EQ(device_.legacy_attest_key(&key, &none, &out.chain), KM_ERROR_OK);
    EXPECT_EQ(toHex(request()),
              toHex(words({0x115, 92, 395, 0, 0}) +
                    words({7, 6, 5, 4, 3, 2021, kUntouched, kUntouched, kUntouched}) +
                    words({59, 59, 23, 31, 12, 1969, kUntouched, kUntouched, kUntouched}) + blob));
}

TEST_F(LegacyRecords, RootOfTrustGoesOutAsTwoRequestsThroughOneBuilder) {
    Bytes root = fill(32, 0x52);
    Bytes boot_state = hex("d1 d2 d3 d4 d5");
    const auto set = [&](uint8_t* rot) {
        return strongbox_.SetRot(rot, nullptr, true, boot_state.data(), KM_BOOT_STATE_RED, 9, 10);
    };
    script().willReply(words({0}));
    script().willReply(words({0}));
    EXPECT_EQ(set(root.data()), KM_ERROR_OK);
    ASSERT_EQ(script().callNames(), "vaultlink_dev_init send_cmd vaultlink_dev_init send_cmd");
    EXPECT_EQ(toHex(script().calls[1].request), toHex(words({0x201, 12, 32}) + root));
    // The transport hands out the same region again: behind the new header stand the rest of the
    // first request and a copy of what its first 16 bytes were.
    const Bytes body = words({1}) + hex("d1 d2 d3 d4") + fill(28, 0xFF) + words({3, 9, 10});
    EXPECT_EQ(toHex(request()), toHex(words({0x208, 0, 16, 48}) + fill(28, 0x52) +
                                      words({0x201, 12, 32}) + fill(4, 0x52) + body));
    EXPECT_EQ(script().lastSent().response_before.size(), 40852u);

    restart();
    script().willReply(words({static_cast<uint32_t>(-1)}));
    EXPECT_EQ(set(root.data()), KM_ERROR_ROOT_OF_TRUST_ALREADY_SET);
    EXPECT_EQ(set(nullptr), KM_ERROR_UNEXPECTED_NULL_POINTER);
    script().shared_buffers = 0;
    EXPECT_EQ(set(root.data()), KM_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(script().sentCount(), 1u);
    EXPECT_THAT(log_.texts(), ElementsAre("LegacySetRot", "ret: 0", "resp->status: -1",
                                          "set_rot_req handle NULL"));
}

TEST_F(LegacyRecords, ARequestThatLeavesNoRoomIsStillSent) {
    const Bytes blob = fill(kSharedBytes, 1);
    const auto deleteKey = [&](size_t size) {
        const keymaster_key_blob_t key = {blob.data(), size};
        return device_.legacy_delete_key(&key);
    };
    EXPECT_EQ(deleteKey(kSharedBytes - 12), KM_ERROR_UNKNOWN_ERROR);
    EXPECT_EQ(request().size(), kSharedBytes);
    script().replies = {{kSendFails, {}}};
    EXPECT_EQ(deleteKey(kSharedBytes - 12), kSendFails);
    EXPECT_THAT(log_.texts(), ElementsAre("legacy_delete_key", "ret: 7", "resp->status: 0"));
    EXPECT_EQ(deleteKey(kSharedBytes - 11), KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    EXPECT_EQ(script().sentCount(), 2u);
}

}  // namespace
}  // namespace lumo::test
