// What comes back: results, outputs, log lines, and responses that point out of the shared buffer.

#include "LegacyDevice.h"

namespace lumo::test {
namespace {

using ::testing::IsEmpty;
using Params = std::vector<keymaster_key_param_t>;

constexpr uint32_t kRefused = static_cast<uint32_t>(KM_ERROR_INVALID_KEY_BLOB);

class LegacyResponses : public LegacyDevice {
  protected:
    LegacyResponses() {
        filler_[0] = keymaster_param_blob(KM_TAG_APPLICATION_DATA, filler_bytes_.data(), 0);
    }

    // A set whose 12-byte record and blob bytes add up to `size`.
    const keymaster_key_param_set_t* fillerOf(size_t size) {
        filler_[0].blob.data_length = size - 12;
        return &filler_set_;
    }
    const keymaster_key_blob_t* keyOfSize(size_t size) {
        key_.key_material_size = size;
        return &key_;
    }
    // Makes the call with so many bytes of variable data and gives it the answer.
    using Call = std::function<keymaster_error_t(size_t size, Outputs& out)>;
    keymaster_error_t answer(const Bytes& response, const Call& call, size_t size) {
        restart();
        Outputs out;
        script().willReply(response);
        script().willReply(words({0}));  // for the abort of an operation that has begun
        return call(size, out);
    }

    const Bytes filler_bytes_ = fill(kSharedBytes, 0x44);
    Params filler_ = Params(1);
    keymaster_key_param_set_t filler_set_ = setOf(filler_);
    keymaster_key_blob_t key_ = keyOf(filler_bytes_);
    const keymaster_key_param_set_t no_params_ = {};
};

#define CALL(...) [&](size_t size, Outputs& out) { return device_.legacy_##__VA_ARGS__; }

TEST_F(LegacyResponses, AResponseThatTheSharedBufferCutsOffIsAnUnknownError) {
    const struct {
        size_t header_bytes;
        Bytes response;
        Call call;
        keymaster_error_t result = KM_ERROR_OK;
    } cases[] = {
        {28, words({0, 0, 16, 394, 0x4B4D4B44, 0}),
         CALL(get_key_characteristics(keyOfSize(size), nullptr, nullptr, &out.characteristics)),
         KM_ERROR_INVALID_KEY_BLOB},
        {20, words({0, 0, 16, 5}) + fill(5, 1),
         CALL(upgrade_key(keyOfSize(size), nullptr, &out.key))},
        {32, words({0, 0, 1, 20, 18, 16, 1, 17, 1}) + hex("c5 03"),
         CALL(export_key(KM_KEY_FORMAT_X509, keyOfSize(size), nullptr, nullptr, &out.data))},
        {92, words({0, 0, 20, 0, 2, 16, 2, 18, 3}) + fill(5, 7),
         CALL(attest_key(keyOfSize(size), &no_params_, &out.chain))},
        {24, words({0, 0, 1, 0, 32, 1, 2, 3, 4, 20}),
         CALL(begin_operation(KM_PURPOSE_ENCRYPT, keyOfSize(size), nullptr, &out.params,
                              &out.handle))},
        {28, words({0, 0, 20, 6, 9}) + fill(6, 7),
         CALL(update_operation(1, fillerOf(size), nullptr, &out.consumed, nullptr, &out.data))},
        {36, words({0, 0, 16, 6}) + fill(6, 7),
         CALL(finish_operation(1, fillerOf(size), nullptr, nullptr, nullptr, &out.data))},
    };
    for (const auto& c : cases) {
        for (size_t room = 0; room <= c.response.size(); ++room) {
            ASSERT_EQ(answer(c.response, c.call, kSharedBytes - c.header_bytes - room),
                      room == c.response.size() ? c.result : KM_ERROR_UNKNOWN_ERROR)
                << c.header_bytes << " with room for " << room;
        }
    }
    EXPECT_THAT(log_.texts(), IsEmpty());
}

TEST_F(LegacyResponses, OffsetsAndLengthsOutsideTheSharedBufferAreAnUnknownError) {
    const Call upgrade = CALL(upgrade_key(keyOfSize(size), nullptr, &out.key));
    const Call attest = CALL(attest_key(keyOfSize(size), &no_params_, &out.chain));
    const Call convert =
        CALL(export_key(KM_KEY_FORMAT_X509, keyOfSize(size), nullptr, nullptr, &out.data));
    constexpr keymaster_error_t kUnknown = KM_ERROR_UNKNOWN_ERROR;
    const struct {
        std::vector<uint32_t> response;
        const Call& call;
        keymaster_error_t result;
    } cases[] = {
        {{0, 0, 0xFFFFFFFF, 1}, upgrade, kUnknown},
        {{0, 0, 16, 0xFFFFFFFF}, upgrade, kUnknown},
        {{0, 0, kSharedBytes, 0}, upgrade, KM_ERROR_OK},
        {{0, 0, 0xFFFFFFF0, 0, 1}, attest, kUnknown},
        {{0, 0, 0xFFFFFFF0, 0, 0}, attest, KM_ERROR_OK},
        {{0, 0, 20, 0, 0x1FFFFFFF}, attest, kUnknown},
        {{0, 0, 0xFFFFFFF0, 0, 0x20000000}, attest, KM_ERROR_MEMORY_ALLOCATION_FAILED},
        {{0, 0, 20, 0, 2, 0, 4, 0xFFFFFFFF, 1}, attest, kUnknown},
        {{0, 0, 3, 0xFFFFFFFF, 1}, convert, kUnknown},
        {{0, 0, 3, 20, 0, 0, 0, 0, 28, 0xFFFFFFFF, 28, 1}, convert, kUnknown},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(answer(words(c.response), c.call, 5), c.result) << toHex(words(c.response));
    }
}

TEST_F(LegacyResponses, MissingPlacesAreRefusedBeforeAnythingIsSent) {
    Bytes check;
    for (const keymaster_error_t result : {
             device_.generate_key_common(fillerOf(12), nullptr),
             device_.legacy_import_wrapped_key(nullptr, 0, 0, {}, {}, {}, nullptr, nullptr),
             device_.legacy_begin_operation(KM_PURPOSE_SIGN, &key_, nullptr, nullptr, nullptr),
             device_.legacy_update_operation(1, nullptr, nullptr, nullptr, nullptr, nullptr),
             device_.legacy_get_hmac_sharing_parameters(nullptr),
             device_.legacy_get_date_support(nullptr),
             device_.LegacyVerifyAuthorization(1, nullptr),
         }) {
        EXPECT_EQ(result, KM_ERROR_OUTPUT_PARAMETER_NULL);
    }
    // These take a missing place, or an empty list, for a missing input.
    EXPECT_EQ(device_.legacy_upgrade_key(&key_, &no_params_, nullptr),
              KM_ERROR_UNEXPECTED_NULL_POINTER);
    EXPECT_EQ(device_.legacy_attest_key(&key_, &no_params_, nullptr),
              KM_ERROR_UNEXPECTED_NULL_POINTER);
    EXPECT_EQ(device_.legacy_compute_shared_hmac({}, check), KM_ERROR_UNEXPECTED_NULL_POINTER);
    EXPECT_EQ(strongbox_.verifyAuthorization(1, nullptr), KM_ERROR_UNIMPLEMENTED);
    EXPECT_THAT(script().calls, IsEmpty());
}

TEST_F(LegacyResponses, GeneratedBlobsNeedTheirSizeAndLeaveNothingOnFailure) {
    const auto generate = [&](const keymaster_key_param_set_t* set, Outputs& out) {
        // Whatever the blob came in with is released on a failure.
        out.key = {set == nullptr ? static_cast<uint8_t*>(malloc(8)) : nullptr, 8};
        return device_.legacy_generate_key(set, &out.key, &out.characteristics);
    };
    Outputs good, small, refused;
    script().willReply(words({0, 0, 16, 395}) + plainKeyBlob(395));
    script().willReply(words({0, 0, 16, 394}) + plainKeyBlob(394));
    EXPECT_EQ(generate(fillerOf(12), good), KM_ERROR_OK);
    EXPECT_EQ(bytesOf(good.key), plainKeyBlob(395));
    EXPECT_EQ(generate(fillerOf(12), small), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(bytesOf(small.key), Bytes());
    EXPECT_EQ(generate(nullptr, refused), KM_ERROR_UNEXPECTED_NULL_POINTER);
    EXPECT_EQ(bytesOf(refused.key), Bytes());
}

TEST_F(LegacyResponses, CharacteristicsAreThoseOfTheCallersBlob) {
    Bytes callers = plainKeyBlob();
    callers[24] = 1;  // one hardware-enforced parameter: the key size
    callers[57] = 1;
    callers[58] = 128;
    Bytes nameless = callers;
    nameless[0] = 0;
    const Bytes cut(callers.begin(), callers.end() - 1);
    const struct {
        const Bytes& blob;
        uint32_t answered_bytes;
        Bytes answered;
        std::vector<uint32_t> sizes;  // none: refused
    } cases[] = {
        {callers, 0, {}, {128}},
        {nameless, 395, plainKeyBlob(), {128}},
        {nameless, 395, nameless, {}},
        {cut, 395, plainKeyBlob(), {}},
    };
    for (const auto& c : cases) {
        Outputs out;
        const keymaster_key_blob_t key = keyOf(c.blob);
        script().willReply(words({0, 0, 16, c.answered_bytes}) + c.answered);
        EXPECT_EQ(device_.get_key_characteristics(&key, nullptr, nullptr, &out.characteristics),
                  c.sizes.empty() ? KM_ERROR_INVALID_KEY_BLOB : KM_ERROR_OK);
        std::vector<uint32_t> sizes;
        const keymaster_key_param_set_t& set = out.characteristics.hw_enforced;
        for (size_t i = 0; i < set.length; ++i) sizes.push_back(set.params[i].integer);
        EXPECT_EQ(sizes, c.sizes);
    }
}

TEST_F(LegacyResponses, CertificatesLieWhereTheirTableSays) {
    Outputs out, refused;
    // The table stands 4 bytes behind the header; its offsets count from itself.
    script().willReply(words({0, 0, 24, 0, 2, kUntouched, 18, 3, 16, 2}) + hex("a1a2 b1b2b3"));
    EXPECT_EQ(device_.attest_key(keyOfSize(5), &no_params_, &out.chain), KM_ERROR_OK);
    ASSERT_EQ(out.chain.entry_count, 2u);
    EXPECT_EQ(toHex(bytesOf(out.chain.entries[0])), "b1b2b3");
    EXPECT_EQ(toHex(bytesOf(out.chain.entries[1])), "a1a2");

    keymaster_blob_t placeholder = {};
    refused.chain = {&placeholder, 1};
    script().willReply(words({kRefused}));
    EXPECT_EQ(device_.attest_key(keyOfSize(5), &no_params_, &refused.chain),
              KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(refused.chain.entries, nullptr);
}

TEST_F(LegacyResponses, SharedHmacIsAppended) {
    Bytes check = hex("01");
    script().willReply(words({0}) + fill(33, 7));
    EXPECT_EQ(device_.legacy_compute_shared_hmac({hmac_sharing_params_t{}}, check), KM_ERROR_OK);
    EXPECT_EQ(check, hex("01") + fill(32, 7));
}

TEST_F(LegacyResponses, DateSupportTakesOneStatusForNo) {
    const struct {
        int32_t send_result, status;
        int result;
        bool before, after;
        std::string log;
    } cases[] = {
        {0, 0, 0, false, true, ""},
        {0, -40, 0, true, false, "Keymaster does not support date for security patch level"},
        {0, -39, -39, false, false, "resp->status: -39"},
        {kSendFails, -40, kSendFails, true, true, "resp->status: -40"},
    };
    for (const auto& c : cases) {
        LogCapture log;
        bool flag = c.before;
        script().replies = {{c.send_result, words({static_cast<uint32_t>(c.status)})}};
        EXPECT_EQ(device_.get_date_support(&flag), c.result);
        EXPECT_EQ(flag, c.after);
        EXPECT_EQ(log.texts().empty() ? "" : log.texts().back(), c.log);
    }
}

}  // namespace
}  // namespace lumo::test
