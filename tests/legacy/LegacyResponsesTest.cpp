// What comes back: results, outputs, log lines, and responses that point out of the shared buffer.

#include "LegacyDevice.h"

namespace lumo::test {
namespace {

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
    const keymaster_key_blob_t* keyOfSize(size_t size) {
        key_.key_material_size = size;
        return &key_;
    }

    const Bytes filler_bytes_ = fill(kSharedBytes, 0x44);
    Params filler_ = Params(1);
    keymaster_key_param_set_t filler_set_ = setOf(filler_);
    keymaster_key_blob_t key_ = keyOf(filler_bytes_);
    const keymaster_key_param_set_t no_params_ = {};
};

// A call with so many bytes of variable data, and its answer.
struct SizedCall {
    size_t header_bytes;
    Bytes response;
    std::function<keymaster_error_t(size_t size, Outputs& out)> call;
    keymaster_error_t result = KM_ERROR_OK;
};
#define CALL(...) [&](size_t size, Outputs& out) { return device_.legacy_##__VA_ARGS__; }
SizedCall row(size_t header_bytes, Bytes response,
              std::function<keymaster_error_t(size_t, Outputs&)> call,
              keymaster_error_t result = KM_ERROR_OK) {
    return {header_bytes, std::move(response), std::move(call), result};
}

TEST_F(LegacyResponses, AResponseThatTheSharedBufferCutsOffIsAnUnknownError) {
    const Bytes key = plainKeyBlob();
    const Bytes header(key.begin(), key.begin() + 8);
    const Bytes rsa_key = words({16, 1, 17, 1}) + hex("c5 03");
    const SizedCall cases[] = {
        row(12, words({0, 0, 16, 395}) + key,
            CALL(generate_key(fillerOf(size), &out.key, &out.characteristics))),
        row(28, words({0, 0, 16, 394}) + header,
            CALL(get_key_characteristics(keyOfSize(size), nullptr, nullptr, &out.characteristics)),
            KM_ERROR_INVALID_KEY_BLOB),
        row(52, words({0, 12, 395}) + key,
            CALL(import_wrapped_key(fillerOf(size), 0, 0, {}, {}, {}, &out.key, nullptr))),
        row(20, words({0, 0, 16, 5}) + fill(5, 1),
            CALL(upgrade_key(keyOfSize(size), nullptr, &out.key))),
        row(32, words({0, 0, 1, 20, 18}) + rsa_key,
            CALL(export_key(KM_KEY_FORMAT_X509, keyOfSize(size), nullptr, nullptr, &out.data))),
        row(92, words({0, 0, 20, 0, 2, 16, 2, 18, 3}) + fill(5, 7),
            CALL(attest_key(keyOfSize(size), &no_params_, &out.chain))),
        row(24, words({0, 0, 1, 0, 32, 1, 2, 3, 4, 20}),
            CALL(begin_operation(KM_PURPOSE_ENCRYPT, keyOfSize(size), nullptr, &out.params,
                                 &out.handle))),
        row(28, words({0, 0, 20, 6, 9}) + fill(6, 7),
            CALL(update_operation(1, fillerOf(size), nullptr, &out.consumed, nullptr, &out.data))),
        row(36, words({0, 0, 16, 6}) + fill(6, 7),
            CALL(finish_operation(1, fillerOf(size), nullptr, nullptr, nullptr, &out.data))),
    };
    for (const SizedCall& c : cases) {
        for (size_t room = 0; room <= c.response.size(); ++room) {
            restart();
            Outputs out;
            script().willReply(c.response);
            script().willReply(words({0}));  // for the abort of an operation that has begun
            ASSERT_EQ(c.call(kSharedBytes - c.header_bytes - room, out),
                      room == c.response.size() ? c.result : KM_ERROR_UNKNOWN_ERROR)
                << c.header_bytes << " with room for " << room;
        }
    }
    EXPECT_THAT(log_.texts(), IsEmpty());
}

TEST_F(LegacyResponses, OffsetsAndLengthsOutsideTheSharedBufferAreAnUnknownError) {
    const auto upgrade = CALL(upgrade_key(keyOfSize(size), nullptr, &out.key));
    const auto attest = CALL(attest_key(keyOfSize(size), &no_params_, &out.chain));
    const auto convert =
        CALL(export_key(KM_KEY_FORMAT_X509, keyOfSize(size), nullptr, nullptr, &out.data));
    const SizedCall cases[] = {
        row(0, words({0, 0, 0xFFFFFFFF, 1}), upgrade, KM_ERROR_UNKNOWN_ERROR),
        row(0, words({0, 0, 16, 0xFFFFFFFF}), upgrade, KM_ERROR_UNKNOWN_ERROR),
        row(0, words({0, 0, kSharedBytes, 16}), upgrade, KM_ERROR_UNKNOWN_ERROR),
        row(0, words({0, 0, kSharedBytes, 0}), upgrade),
        row(0, words({0, 0, 0xFFFFFFF0, 0, 1}), attest, KM_ERROR_UNKNOWN_ERROR),
        row(0, words({0, 0, 0xFFFFFFF0, 0, 0}), attest),
        row(0, words({0, 0, 20, 0, 0x1FFFFFFF}), attest, KM_ERROR_UNKNOWN_ERROR),
        row(0, words({0, 0, 20, 0, 0x20000000}), attest, KM_ERROR_MEMORY_ALLOCATION_FAILED),
        row(0, words({0, 0, 20, 0, 2, 0, 4, 0xFFFFFFFF, 1}), attest, KM_ERROR_UNKNOWN_ERROR),
        row(0, words({0, 0, 3, 0xFFFFFFFF, 1}), convert, KM_ERROR_UNKNOWN_ERROR),
        row(0, words({0, 0, 3, 20, 0, 0, 0, 0, 28, 0xFFFFFFFF, 28, 1}), convert,
            KM_ERROR_UNKNOWN_ERROR),
    };
    for (const SizedCall& c : cases) {
        restart();
        Outputs out;
        script().willReply(c.response);
        EXPECT_EQ(c.call(5, out), c.result) << toHex(c.response);
    }
}

TEST_F(LegacyResponses, MissingPlacesAreRefusedBeforeAnythingIsSent) {
    const Bytes five = fill(5, 1);
    const keymaster_key_blob_t key = keyOf(five);
    const keymaster_key_param_set_t set = {};
    Bytes check;
    for (const keymaster_error_t result : {
             device_.legacy_import_wrapped_key(nullptr, 0, 0, {}, {}, {}, nullptr, nullptr),
             device_.legacy_begin_operation(KM_PURPOSE_SIGN, &key, nullptr, nullptr, nullptr),
             device_.legacy_update_operation(1, nullptr, nullptr, nullptr, nullptr, nullptr),
             device_.legacy_get_hmac_sharing_parameters(nullptr),
             device_.legacy_get_date_support(nullptr),
             device_.LegacyVerifyAuthorization(1, nullptr),
         }) {
        EXPECT_EQ(result, KM_ERROR_OUTPUT_PARAMETER_NULL);
    }
    // These take a missing place, or an empty list, for a missing input.
    EXPECT_EQ(device_.legacy_upgrade_key(&key, &set, nullptr), KM_ERROR_UNEXPECTED_NULL_POINTER);
    EXPECT_EQ(device_.legacy_attest_key(&key, &set, nullptr), KM_ERROR_UNEXPECTED_NULL_POINTER);
    EXPECT_EQ(device_.legacy_compute_shared_hmac({}, check), KM_ERROR_UNEXPECTED_NULL_POINTER);
    EXPECT_EQ(strongbox_.verifyAuthorization(1, nullptr), KM_ERROR_UNIMPLEMENTED);
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
        {{kSendFails, words({static_cast<uint32_t>(-40)})},
         static_cast<keymaster_error_t>(kSendFails),
         true,
         {"legacy_get_date_support", "ret: 7", "resp->status: -40"}},
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
