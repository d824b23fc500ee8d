// What comes back: results, outputs, log lines, and responses that point out of the shared buffer.

#include "LegacyDevice.h"

namespace lumo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Params = std::vector<keymaster_key_param_t>;

constexpr uint32_t kRefused = static_cast<uint32_t>(KM_ERROR_INVALID_KEY_BLOB);
constexpr size_t kParamBytes = 12;

class LegacyResponses : public LegacyDevice {
  protected:
    LegacyResponses() {
        filler_[0] = keymaster_param_blob(KM_TAG_APPLICATION_DATA, filler_bytes_.data(), 0);
    }

    // A set whose 12-byte record and blob bytes add up to `size`.
    const keymaster_key_param_set_t* fillerOf(size_t size) {
        filler_[0].blob.data_length = size - kParamBytes;
        return &filler_set_;
    }
    keymaster_key_blob_t keyOfSize(size_t size) { return {filler_bytes_.data(), size}; }

    const Bytes filler_bytes_ = fill(kSharedBytes, 0x44);
    Params filler_ = Params(1);
    keymaster_key_param_set_t filler_set_ = setOf(filler_);
};

// A call whose request ends `room` bytes before the end of the shared buffer, and its answer.
struct RoomCase {
    const char* name;
    Bytes response;
    std::function<keymaster_error_t(size_t room, Outputs& out)> call;
};

TEST_F(LegacyResponses, AResponseThatTheSharedBufferCutsOffIsAnUnknownError) {
    const Bytes key = plainKeyBlob();
    const Bytes record = words({16, 1, 17, 1}) + hex("c5 03");
    const auto left = [](size_t header, size_t room) { return kSharedBytes - header - room; };
    const RoomCase cases[] = {
        {"generate", words({0, 0, 16, 395}) + key,
         [&](size_t room, Outputs& out) {
             return device_.legacy_generate_key(fillerOf(left(12, room)), &out.key,
                                                &out.characteristics);
         }},
        {"characteristics", words({0, 0, 16, 394}) + Bytes(key.begin(), key.begin() + 8),
         [&](size_t room, Outputs& out) {
             const keymaster_key_blob_t blob = keyOfSize(left(28, room));
             const auto result = device_.legacy_get_key_characteristics(&blob, nullptr, nullptr,
                                                                        &out.characteristics);
             return result == KM_ERROR_INVALID_KEY_BLOB ? KM_ERROR_OK : result;
         }},
        {"import", words({0, 0, 16, 395}) + key,
         [&](size_t room, Outputs& out) {
             Params aes = {keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_AES)};
             const keymaster_key_param_set_t set = setOf(aes);
             const keymaster_blob_t raw = {filler_bytes_.data(), left(24 + kParamBytes, room)};
             return device_.legacy_import_key(&set, KM_KEY_FORMAT_RAW, &raw, &out.key, nullptr);
         }},
        {"import wrapped", words({0, 12, 395}) + key,
         [&](size_t room, Outputs& out) {
             return device_.legacy_import_wrapped_key(nullptr, 0, 0, {}, {},
                                                      fill(left(52, room), 1), &out.key, nullptr);
         }},
        {"upgrade", words({0, 0, 16, 5}) + fill(5, 1),
         [&](size_t room, Outputs& out) {
             const keymaster_key_blob_t blob = keyOfSize(left(20, room));
             return device_.legacy_upgrade_key(&blob, nullptr, &out.key);
         }},
        {"export", words({0, 0, 1, 20, 18}) + record,
         [&](size_t room, Outputs& out) {
             const keymaster_key_blob_t blob = keyOfSize(left(32, room));
             return device_.legacy_export_key(KM_KEY_FORMAT_X509, &blob, nullptr, nullptr,
                                              &out.data);
         }},
        {"attest", words({0, 0, 20, 0, 2, 16, 2, 18, 3}) + fill(5, 7),
         [&](size_t room, Outputs& out) {
             const keymaster_key_blob_t blob = keyOfSize(left(92, room));
             const keymaster_key_param_set_t none = {};
             return device_.legacy_attest_key(&blob, &none, &out.chain);
         }},
        {"begin", words({0, 0, 1, 0, 32, 1, 2, 3, 4, 20}),
         [&](size_t room, Outputs& out) {
             const keymaster_key_blob_t blob = keyOfSize(left(24, room));
             return device_.legacy_begin_operation(KM_PURPOSE_ENCRYPT, &blob, nullptr, &out.params,
                                                   &out.handle);
         }},
        {"update", words({0, 0, 20, 6, 9}) + fill(6, 7),
         [&](size_t room, Outputs& out) {
             return device_.legacy_update_operation(1, fillerOf(left(28, room)), nullptr,
                                                    &out.consumed, nullptr, &out.data);
         }},
        {"finish", words({0, 0, 16, 6}) + fill(6, 7),
         [&](size_t room, Outputs& out) {
             return device_.legacy_finish_operation(1, fillerOf(left(36, room)), nullptr, nullptr,
                                                    nullptr, &out.data);
         }},
    };
    for (const RoomCase& c : cases) {
        SCOPED_TRACE(c.name);
        for (size_t room = 0; room <= c.response.size(); ++room) {
            restart();
            Outputs out;
            script().willReply(c.response);
            script().willReply(words({0}));  // for the abort of an operation that has begun
            const bool whole = room == c.response.size();
            ASSERT_EQ(c.call(room, out), whole ? KM_ERROR_OK : KM_ERROR_UNKNOWN_ERROR) << room;
        }
    }
    EXPECT_THAT(log_.texts(), IsEmpty());
}

TEST_F(LegacyResponses, OffsetsAndLengthsOutsideTheSharedBufferAreAnUnknownError) {
    const Bytes five = fill(5, 1);
    const keymaster_key_blob_t key = keyOf(five);
    const keymaster_key_param_set_t none = {};
    const auto generate = [&](Outputs& out) {
        return device_.generate_key_common(fillerOf(12), &out.key);
    };
    const auto attest = [&](Outputs& out) {
        return device_.legacy_attest_key(&key, &none, &out.chain);
    };
    const auto upgrade = [&](Outputs& out) {
        return device_.legacy_upgrade_key(&key, nullptr, &out.key);
    };
    const auto convert = [&](Outputs& out) {
        return device_.legacy_export_key(KM_KEY_FORMAT_X509, &key, nullptr, nullptr, &out.data);
    };
    const struct {
        std::function<keymaster_error_t(Outputs&)> call;
        std::vector<uint32_t> response;
        keymaster_error_t expected;
    } cases[] = {
        {generate, {0, 0, 0xFFFFFFFF, 1}, KM_ERROR_UNKNOWN_ERROR},
        {generate, {0, 0, 16, 0xFFFFFFFF}, KM_ERROR_UNKNOWN_ERROR},
        {upgrade, {0, 0, kSharedBytes, 16}, KM_ERROR_UNKNOWN_ERROR},
        {upgrade, {0, 0, kSharedBytes, 0}, KM_ERROR_OK},
        {attest, {0, 0, 0xFFFFFFF0, 0, 1}, KM_ERROR_UNKNOWN_ERROR},
        {attest, {0, 0, 0xFFFFFFF0, 0, 0}, KM_ERROR_OK},
        {attest, {0, 0, 20, 0, 0x1FFFFFFF}, KM_ERROR_UNKNOWN_ERROR},
        {attest, {0, 0, 20, 0, 0x20000000}, KM_ERROR_MEMORY_ALLOCATION_FAILED},
        {attest, {0, 0, 20, 0, 2, 0, 4, 0xFFFFFFFF, 1}, KM_ERROR_UNKNOWN_ERROR},
        {convert, {0, 0, 3, 0xFFFFFFFF, 1}, KM_ERROR_UNKNOWN_ERROR},
        {convert, {0, 0, 3, 20, 0, 0, 0, 0, 28, 0xFFFFFFFF, 28, 1}, KM_ERROR_UNKNOWN_ERROR},
    };
    for (const auto& c : cases) {
        restart();
        Outputs out;
        script().willReply(words(c.response));
        EXPECT_EQ(c.call(out), c.expected) << toHex(words(c.response));
    }
}

TEST_F(LegacyResponses, FailuresAreLoggedUnderTheirOwnFirstLine) {
    const Bytes five = fill(5, 1);
    const keymaster_key_blob_t key = keyOf(five);
    const keymaster_blob_t data = blobOf(five);
    Params params = {keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_AES)};
    const keymaster_key_param_set_t set = setOf(params);
    Outputs out;
    struct Case {
        std::function<keymaster_error_t()> call;
        const char* method;
        const char* send_failure;
    };
    const Case cases[] = {
        {[&] { return device_.legacy_generate_key(&set, &out.key, nullptr); },
         "legacy_generate_key", "generate_key_common"},
        {[&] {
             return device_.legacy_get_key_characteristics(&key, nullptr, nullptr,
                                                           &out.characteristics);
         },
         "legacy_get_key_characteristics", "legacy_get_key_characteristics"},
        {[&] {
             return device_.legacy_import_key(&set, KM_KEY_FORMAT_RAW, &data, &out.key, nullptr);
         },
         "legacy_import_key", "legacy_import_key"},
        {[&] {
             return device_.legacy_export_key(KM_KEY_FORMAT_X509, &key, nullptr, nullptr,
                                              &out.data);
         },
         "legacy_export_key", "legacy_export_key"},
        {[&] { return device_.legacy_upgrade_key(&key, nullptr, &out.key); }, "legacy_upgrade_key",
         "Upgrade key send cmd failed"},
        {[&] { return device_.legacy_attest_key(&key, &set, &out.chain); }, "legacy_attest_key",
         "Attest key send cmd failed"},
        {[&] {
             return device_.legacy_begin_operation(KM_PURPOSE_SIGN, &key, nullptr, nullptr,
                                                   &out.handle);
         },
         "legacy_begin_operation", "Begin send cmd failed"},
        {[&] {
             return device_.legacy_update_operation(1, nullptr, &data, &out.consumed, nullptr,
                                                    nullptr);
         },
         "legacy_update_operation", "Update send cmd failed"},
        {[&] {
             return device_.legacy_finish_operation(1, nullptr, nullptr, nullptr, nullptr, nullptr);
         },
         "legacy_finish_operation", "Finish send cmd failed"},
        {[&] { return device_.legacy_abort_operation(1); }, "legacy_abort_operation",
         "legacy_abort_operation"},
        {[&] {
             return device_.legacy_import_wrapped_key(nullptr, 0, 0, {}, {}, {}, &out.key, nullptr);
         },
         "legacy_import_wrapped_key", "legacy_import_wrapped_key"},
        {[&] { return device_.legacy_delete_key(&key); }, "legacy_delete_key", "legacy_delete_key"},
        {[&] { return device_.legacy_delete_all_keys(); }, "legacy_delete_all_keys",
         "legacy_delete_all_keys"},
        {[&] { return device_.legacy_destroy_device_ids(); }, "legacy_destroy_device_ids",
         "legacy_destroy_device_ids"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.method);
        restart();
        script().hsm_result = KM_ERROR_SECURE_HW_BUSY;
        LogCapture log;
        EXPECT_EQ(c.call(), KM_ERROR_SECURE_HW_BUSY);
        EXPECT_EQ(script().callNames(), "hsm_init");
        script().hsm_result = KM_ERROR_OK;
        script().no_shared_buffer = true;
        EXPECT_EQ(c.call(), KM_ERROR_INVALID_ARGUMENT);
        script().no_shared_buffer = false;
        script().replies.push_back({kSendFails, words({kRefused})});
        EXPECT_EQ(c.call(), kSendFails);
        script().willReply(words({kRefused}));
        EXPECT_EQ(c.call(), KM_ERROR_INVALID_KEY_BLOB);
        EXPECT_THAT(log.texts(),
                    ElementsAre(c.method, "ret: -48", "resp->status: 0", "req handle NULL",
                                c.send_failure, "ret: 7", "resp->status: -33", c.send_failure,
                                "ret: 0", "resp->status: -33"));
        EXPECT_EQ(log.lines().back().tag, "KeyMasterHalDevice");
        EXPECT_EQ(log.lines().back().priority, 6);
    }
}

TEST_F(LegacyResponses, MissingArgumentsAreRefusedBeforeAnythingIsSent) {
    const Bytes five = fill(5, 1);
    const keymaster_key_blob_t key = keyOf(five);
    const keymaster_key_blob_t empty_key = {five.data(), 0};
    const keymaster_blob_t data = blobOf(five);
    const keymaster_key_param_set_t set = {};
    Outputs out;
    const std::pair<keymaster_error_t, keymaster_error_t> results[] = {
        {device_.legacy_get_key_characteristics(&empty_key, nullptr, nullptr, &out.characteristics),
         KM_ERROR_UNEXPECTED_NULL_POINTER},
        {device_.legacy_get_key_characteristics(&key, nullptr, nullptr, nullptr),
         KM_ERROR_OUTPUT_PARAMETER_NULL},
        {device_.legacy_upgrade_key(&key, &set, nullptr), KM_ERROR_UNEXPECTED_NULL_POINTER},
        {device_.legacy_attest_key(&key, nullptr, &out.chain), KM_ERROR_UNEXPECTED_NULL_POINTER},
        {device_.legacy_attest_key(&key, &set, nullptr), KM_ERROR_UNEXPECTED_NULL_POINTER},
        {device_.legacy_import_key(nullptr, KM_KEY_FORMAT_RAW, &data, &out.key, nullptr),
         KM_ERROR_UNEXPECTED_NULL_POINTER},
        {device_.legacy_import_key(&set, KM_KEY_FORMAT_RAW, &data, nullptr, nullptr),
         KM_ERROR_OUTPUT_PARAMETER_NULL},
        {device_.legacy_export_key(KM_KEY_FORMAT_X509, &empty_key, nullptr, nullptr, &out.data),
         KM_ERROR_UNEXPECTED_NULL_POINTER},
        {device_.legacy_export_key(KM_KEY_FORMAT_X509, &key, nullptr, nullptr, nullptr),
         KM_ERROR_OUTPUT_PARAMETER_NULL},
        {device_.legacy_import_wrapped_key(nullptr, 0, 0, {}, {}, {}, nullptr, nullptr),
         KM_ERROR_OUTPUT_PARAMETER_NULL},
        {device_.legacy_begin_operation(KM_PURPOSE_SIGN, nullptr, nullptr, nullptr, &out.handle),
         KM_ERROR_UNEXPECTED_NULL_POINTER},
        {device_.legacy_begin_operation(KM_PURPOSE_SIGN, &key, nullptr, nullptr, nullptr),
         KM_ERROR_OUTPUT_PARAMETER_NULL},
        {device_.legacy_update_operation(1, nullptr, &data, nullptr, nullptr, nullptr),
         KM_ERROR_OUTPUT_PARAMETER_NULL},
        {device_.legacy_get_hmac_sharing_parameters(nullptr), KM_ERROR_OUTPUT_PARAMETER_NULL},
        {device_.legacy_get_date_support(nullptr), KM_ERROR_OUTPUT_PARAMETER_NULL},
        {device_.LegacyVerifyAuthorization(1, nullptr), KM_ERROR_OUTPUT_PARAMETER_NULL},
        {strongbox_.LegacyVerifyAuthorization(1, nullptr), KM_ERROR_UNIMPLEMENTED},
        {device_.legacy_delete_key(nullptr), KM_ERROR_UNEXPECTED_NULL_POINTER},
    };
    for (const auto& [result, expected] : results) EXPECT_EQ(result, expected);
    std::vector<uint8_t> check;
    EXPECT_EQ(device_.legacy_compute_shared_hmac({}, check), KM_ERROR_UNEXPECTED_NULL_POINTER);
    EXPECT_THAT(script().calls, IsEmpty());
}

TEST_F(LegacyResponses, GeneratedBlobsNeedTheirSizeAndLeaveNothingOnFailure) {
    for (const auto& [size, expected] :
         {std::pair{394u, KM_ERROR_INVALID_KEY_BLOB}, {395u, KM_ERROR_OK}}) {
        Outputs out;
        script().willReply(words({0, 0, 16, size}) + plainKeyBlob(size));
        EXPECT_EQ(device_.legacy_generate_key(fillerOf(12), &out.key, &out.characteristics),
                  expected);
        EXPECT_EQ(bytesOf(out.key), expected == KM_ERROR_OK ? plainKeyBlob(size) : Bytes());
    }
    // Whatever the blob came in with is released too.
    Outputs out;
    out.key = {static_cast<uint8_t*>(malloc(8)), 8};
    EXPECT_EQ(device_.legacy_generate_key(nullptr, &out.key, nullptr),
              KM_ERROR_UNEXPECTED_NULL_POINTER);
    EXPECT_EQ(out.key.key_material, nullptr);
    EXPECT_EQ(out.key.key_material_size, 0u);
    EXPECT_EQ(device_.legacy_generate_key(fillerOf(12), nullptr, nullptr),
              KM_ERROR_OUTPUT_PARAMETER_NULL);
}

TEST_F(LegacyResponses, CharacteristicsAreThoseOfTheCallersBlob) {
    Bytes callers = plainKeyBlob();
    callers[24] = 1;  // one hardware-enforced parameter: the key size
    callers[57] = 1;
    callers[58] = 128;
    Bytes nameless = callers;
    nameless[0] = 0;
    const Bytes answered = plainKeyBlob();
    const struct {
        Bytes blob;
        uint32_t answered_bytes;
        Bytes answered;
        keymaster_error_t expected;
    } cases[] = {
        {callers, 0, {}, KM_ERROR_OK},
        {nameless, 395, answered, KM_ERROR_OK},
        {nameless, 394, answered, KM_ERROR_INVALID_KEY_BLOB},
        {nameless, 395, nameless, KM_ERROR_INVALID_KEY_BLOB},
        {Bytes(callers.begin(), callers.end() - 1), 395, answered, KM_ERROR_INVALID_KEY_BLOB},
    };
    for (const auto& c : cases) {
        restart();
        Outputs out;
        const keymaster_key_blob_t key = keyOf(c.blob);
        script().willReply(words({0, 0, 16, c.answered_bytes}) + c.answered);
        EXPECT_EQ(
            device_.legacy_get_key_characteristics(&key, nullptr, nullptr, &out.characteristics),
            c.expected);
        if (c.expected != KM_ERROR_OK) continue;
        ASSERT_EQ(out.characteristics.hw_enforced.length, 1u);
        EXPECT_EQ(out.characteristics.hw_enforced.params[0].integer, 128u);
    }
}

TEST_F(LegacyResponses, CertificatesLieWhereTheirTableSays) {
    const Bytes five = fill(5, 1);
    const keymaster_key_blob_t key = keyOf(five);
    const keymaster_key_param_set_t none = {};
    Outputs out;
    // The table stands 4 bytes behind the header; its offsets count from itself.
    script().willReply(words({0, 0, 24, 0, 2, kUntouched, 18, 3, 16, 2}) + hex("a1a2 b1b2b3"));
    EXPECT_EQ(device_.legacy_attest_key(&key, &none, &out.chain), KM_ERROR_OK);
    ASSERT_EQ(out.chain.entry_count, 2u);
    EXPECT_EQ(toHex(bytesOf(out.chain.entries[0])), "b1b2b3");
    EXPECT_EQ(toHex(bytesOf(out.chain.entries[1])), "a1a2");

    out.release();
    keymaster_blob_t placeholder = {};
    out.chain = {&placeholder, 1};
    script().willReply(words({kRefused}));
    EXPECT_EQ(device_.legacy_attest_key(&key, &none, &out.chain), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(out.chain.entries, nullptr);
    EXPECT_EQ(out.chain.entry_count, 0u);
}

TEST_F(LegacyResponses, UpgradedKeyIsCopiedOut) {
    const Bytes five = fill(5, 1);
    const keymaster_key_blob_t key = keyOf(five);
    Outputs out;
    script().willReply(words({0, 0, 20, 3, 0}) + hex("a1a2a3"));
    EXPECT_EQ(device_.legacy_upgrade_key(&key, nullptr, &out.key), KM_ERROR_OK);
    EXPECT_EQ(toHex(bytesOf(out.key)), "a1a2a3");
}

TEST_F(LegacyResponses, SharedHmacAndVerificationAnswersAreTakenApart) {
    hmac_sharing_params_t share = {};
    script().willReply(words({0}) + fill(32, 5) + fill(32, 6));
    EXPECT_EQ(device_.legacy_get_hmac_sharing_parameters(&share), KM_ERROR_OK);
    EXPECT_EQ(Bytes(share.seed, share.seed + 32), fill(32, 5));
    EXPECT_EQ(Bytes(share.nonce, share.nonce + 32), fill(32, 6));

    Bytes check = hex("01");
    script().willReply(words({0}) + fill(33, 7));
    EXPECT_EQ(device_.legacy_compute_shared_hmac({share}, check), KM_ERROR_OK);
    EXPECT_EQ(check, hex("01") + fill(32, 7));

    verification_token_t token = {};
    script().willReply(words({0, 1, 2, 3, 4, 1}) + fill(32, 8));
    EXPECT_EQ(device_.verifyAuthorization(9, &token), KM_ERROR_OK);
    EXPECT_EQ(token.challenge, 0x200000001u);
    EXPECT_EQ(token.timestamp, 0x400000003u);
    EXPECT_EQ(token.security_level, 1u);
    EXPECT_EQ(Bytes(token.mac, token.mac + 32), fill(32, 8));
}

TEST_F(LegacyResponses, DateSupportTakesOneStatusForNo) {
    const struct {
        TransportReply reply;
        keymaster_error_t result;
        bool flag;  // started as the opposite of what an answer sets
        std::vector<std::string> log;
    } cases[] = {
        {{0, words({0})}, KM_ERROR_OK, true, {}},
        {{0, words({static_cast<uint32_t>(-40)})},
         KM_ERROR_OK,
         false,
         {"Keymaster does not support date for security patch level"}},
        {{0, words({static_cast<uint32_t>(-39)})},
         KM_ERROR_UNSUPPORTED_TAG,
         true,
         {"legacy_get_date_support", "ret: 0", "resp->status: -39"}},
        {{-40, words({0})},
         KM_ERROR_INVALID_TAG,
         true,
         {"legacy_get_date_support", "ret: -40", "resp->status: 0"}},
    };
    for (const auto& c : cases) {
        LogCapture log;
        bool flag = c.reply.result != 0 || c.result != KM_ERROR_OK || !c.flag;
        script().replies.push_back(c.reply);
        EXPECT_EQ(device_.get_date_support(&flag), c.result);
        EXPECT_EQ(flag, c.flag);
        EXPECT_EQ(log.texts(), c.log);
    }
}

}  // namespace
}  // namespace lumo::test
