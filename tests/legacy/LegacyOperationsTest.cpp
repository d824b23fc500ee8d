// Operations: caps, labels, nonces, and the conversion of ECDSA signatures by the purpose map.

#include "LegacyDevice.h"

namespace lumo::test {
namespace {

constexpr uint32_t kRefused = static_cast<uint32_t>(KM_ERROR_VERIFICATION_FAILED);
constexpr uint64_t kHandle = 0x1122334455667788;
constexpr uint32_t kLow = 0x55667788;
constexpr uint32_t kHigh = 0x11223344;

class LegacyOperations : public LegacyDevice {
  protected:
    enum Tracked { kNot, kToSign, kToVerify };

    void begin(keymaster_purpose_t purpose, uint32_t algorithm) {
        uint64_t handle = 0;
        script().willReply(words({0, 0, kLow, kHigh, algorithm, 0, 0, 0, 0, 0}));
        ASSERT_EQ(device_.begin_operation(purpose, &key_, nullptr, nullptr, &handle), KM_ERROR_OK);
        ASSERT_EQ(handle, kHandle);
    }
    keymaster_error_t finish(const Bytes& response, const keymaster_blob_t* signature,
                             keymaster_blob_t* output) {
        script().willReply(response);
        return device_.finish_operation(kHandle, nullptr, nullptr, signature, nullptr, output);
    }

    // A finish tells what an operation is entered for: verifying converts what is sent, signing
    // what comes back. The operation is out of the map afterwards.
    Tracked tracked() {
        Outputs out;
        script().replies.clear();
        EXPECT_EQ(finish(words({0, 0, 16, 65}) + raw_, &signature_, &out.data), KM_ERROR_OK);
        const bool sent_as_is = wordAt(request(), 8) == der_.size();
        const bool returned_as_is = bytesOf(out.data) == raw_;
        EXPECT_TRUE(returned_as_is || bytesOf(out.data) == der_);
        static_cast<void>(device_.abort_operation(kHandle));  // forgets what is left
        return !sent_as_is ? kToVerify : returned_as_is ? kNot : kToSign;
    }

    // An ECDSA-Sig-Value of r = 5 and s = 7, and the same as 32 bytes each; an odd last byte is
    // dropped.
    const Bytes der_ = hex("3006 020105 020107");
    const Bytes raw_ = fill(31, 0) + hex("05") + fill(31, 0) + hex("07 99");
    const Bytes key_bytes_ = fill(4, 1);
    const keymaster_key_blob_t key_ = keyOf(key_bytes_);
    const keymaster_blob_t signature_ = blobOf(der_);
};

TEST_F(LegacyOperations, FinishTakesTheOperationOutOfThePurposeMapOrLeavesIt) {
    const Bytes output = words({0, 0, 16, 65}) + raw_;
    const Bytes one_byte = words({0, 0, 16, 1});
    const Bytes no_output = words({0, 0, 0, 64});
    const Bytes refused = words({kRefused, 0, 0, 0});
    const keymaster_blob_t bad = blobOf(key_bytes_);
    const struct {
        keymaster_purpose_t purpose;
        Bytes response;
        const keymaster_blob_t* signature;
        bool has_place;
        keymaster_error_t result;
        Tracked left;
    } cases[] = {
        {KM_PURPOSE_VERIFY, no_output, &signature_, false, KM_ERROR_OK, kNot},
        {KM_PURPOSE_VERIFY, no_output, &bad, false, KM_ERROR_VERIFICATION_FAILED, kNot},
        {KM_PURPOSE_VERIFY, no_output, nullptr, false, KM_ERROR_OK, kToVerify},
        {KM_PURPOSE_SIGN, no_output, &signature_, false, KM_ERROR_OK, kToSign},
        {KM_PURPOSE_SIGN, refused, nullptr, false, KM_ERROR_VERIFICATION_FAILED, kNot},
        {KM_PURPOSE_SIGN, output, nullptr, false, KM_ERROR_OUTPUT_PARAMETER_NULL, kToSign},
        {KM_PURPOSE_SIGN, output, nullptr, true, KM_ERROR_OK, kNot},
        {KM_PURPOSE_SIGN, one_byte, nullptr, true, KM_ERROR_UNEXPECTED_NULL_POINTER, kNot},
    };
    for (const auto& c : cases) {
        restart();
        Outputs out;
        begin(c.purpose, KM_ALGORITHM_EC);
        EXPECT_EQ(finish(c.response, c.signature, c.has_place ? &out.data : nullptr), c.result);
        EXPECT_EQ(tracked(), c.left) << c.purpose << " " << toHex(c.response);
    }
    EXPECT_THAT(log_.texts(), ::testing::Contains("ecsig_to_internal error"));
}

TEST_F(LegacyOperations, BeginEntersEcKeysOnceAndAbortTakesThemOutFirst) {
    begin(KM_PURPOSE_SIGN, KM_ALGORITHM_RSA);
    EXPECT_EQ(tracked(), kNot);
    begin(KM_PURPOSE_SIGN, KM_ALGORITHM_EC);
    begin(KM_PURPOSE_VERIFY, KM_ALGORITHM_EC);
    EXPECT_EQ(tracked(), kToSign);
    begin(KM_PURPOSE_SIGN, KM_ALGORITHM_EC);
    script().hsm_result = KM_ERROR_SECURE_HW_BUSY;
    EXPECT_EQ(device_.abort_operation(kHandle), KM_ERROR_SECURE_HW_BUSY);
    script().hsm_result = KM_ERROR_OK;
    EXPECT_EQ(tracked(), kNot);
}

TEST_F(LegacyOperations, AVerifyingFinishSendsRAndS) {
    begin(KM_PURPOSE_VERIFY, KM_ALGORITHM_EC);
    const Bytes three = hex("b1b2b3");
    const keymaster_blob_t input = blobOf(three);
    script().willReply(words({0, 0, 0, 0}));
    EXPECT_EQ(device_.finish_operation(kHandle, nullptr, &input, &signature_, nullptr, nullptr),
              KM_ERROR_OK);
    EXPECT_EQ(toHex(request()), toHex(words({0x112, kLow, kHigh, 0, 0, 36, 3, 39, 18}) + three +
                                      words({55, 1, 56, 1}) + hex("05 07")));
}

TEST_F(LegacyOperations, InputIsCappedAndTheResponseLabelled) {
    const Bytes much = fill(20000, 9);
    const keymaster_blob_t input = blobOf(much);
    const auto expect = [&](uint32_t header, uint32_t cap, uint32_t label) {
        EXPECT_EQ(wordAt(request(), 6), cap);
        EXPECT_EQ(request().size(), header + cap);
        const Bytes& labels = script().lastSent().response_before;
        EXPECT_EQ(wordAt(labels, 2), label);
        EXPECT_EQ(wordAt(labels, 3), kSharedBytes - header - cap - label);
    };
    for (auto* device : {&device_, &strongbox_}) {
        const uint32_t cap = device == &device_ ? 16384 : 18432;
        uint32_t consumed = 0;
        script().willReply(words({0, 0, 0, 0, 77}));
        EXPECT_EQ(device->update_operation(1, nullptr, &input, &consumed, nullptr, nullptr),
                  KM_ERROR_OK);
        EXPECT_EQ(consumed, 77u);
        expect(28, cap, 20);
        script().willReply(words({0, 0, 0, 0}));
        EXPECT_EQ(device->finish_operation(1, nullptr, &input, nullptr, nullptr, nullptr),
                  KM_ERROR_OK);
        expect(36, cap, 16);
    }
}

TEST_F(LegacyOperations, UpdateHandsOutWhatTheResponseHolds) {
    const struct {
        Bytes response;
        bool has_place;
        keymaster_error_t result;
        Bytes output;
    } cases[] = {
        {words({0, 0, 24, 2, 5, 0}) + hex("a1a2"), true, KM_ERROR_OK, hex("a1a2")},
        {words({0, 0, 24, 2, 5, 0}), false, KM_ERROR_OUTPUT_PARAMETER_NULL, key_bytes_},
        {words({0, 0, 0, 2, 5}), true, KM_ERROR_OK, {}},
        {words({0, 0, 20, 0, 5}), true, KM_ERROR_OK, {}},
        {words({kRefused, 0, 24, 2, 5}), true, KM_ERROR_VERIFICATION_FAILED, {}},
    };
    for (const auto& c : cases) {
        keymaster_key_param_t stale = {};
        keymaster_key_param_set_t params = {&stale, 1};
        keymaster_blob_t output = blobOf(key_bytes_);
        uint32_t consumed = 0;
        script().willReply(c.response);
        EXPECT_EQ(device_.update_operation(1, nullptr, nullptr, &consumed, &params,
                                           c.has_place ? &output : nullptr),
                  c.result);
        EXPECT_EQ(consumed, 5u);  // of a failure too
        EXPECT_EQ(bytesOf(output), c.output);
        EXPECT_EQ(params.length, c.has_place ? 0u : 1u);
        if (output.data != key_bytes_.data()) std::free(const_cast<uint8_t*>(output.data));
    }
}

TEST_F(LegacyOperations, BeginHandsOutTheNonceOrAbortsTheOperation) {
    const auto response = [](uint32_t nonce_bytes) {
        return words({0, 0, kLow, kHigh, KM_ALGORITHM_AES}) + fill(16, 0x5A) + words({nonce_bytes});
    };
    // A nonce, no place for it, one longer than the shared buffer, none.
    const struct {
        uint32_t nonce_bytes;
        bool has_place;
        keymaster_error_t result;
        Bytes nonce;
    } cases[] = {
        {12, true, KM_ERROR_OK, fill(12, 0x5A)},
        {12, false, KM_ERROR_OUTPUT_PARAMETER_NULL, {}},
        {kSharedBytes, true, KM_ERROR_UNKNOWN_ERROR, {}},
        {0, true, KM_ERROR_OK, {}},
        {0, false, KM_ERROR_OK, {}},
    };
    for (const auto& c : cases) {
        restart();
        Outputs out;
        out.handle = 3;
        script().willReply(response(c.nonce_bytes));
        script().willReply(words({0}));
        EXPECT_EQ(device_.begin_operation(KM_PURPOSE_ENCRYPT, &key_, nullptr,
                                          c.has_place ? &out.params : nullptr, &out.handle),
                  c.result);
        const bool aborted = c.result != KM_ERROR_OK;
        EXPECT_EQ(out.handle, aborted ? 3 : kHandle);
        EXPECT_EQ(request() == words({0x113, kLow, kHigh}), aborted);
        ASSERT_EQ(out.params.length, c.nonce.empty() ? 0u : 1u);
        if (c.nonce.empty()) continue;
        EXPECT_EQ(out.params.params[0].tag, KM_TAG_NONCE);
        EXPECT_EQ(bytesOf(out.params.params[0].blob), c.nonce);
    }

    // A refused begin clears both outputs.
    restart();
    keymaster_key_param_t stale = {};
    keymaster_key_param_set_t params = {&stale, 1};
    uint64_t handle = 3;
    script().willReply(words({kRefused}));
    EXPECT_EQ(device_.begin_operation(KM_PURPOSE_SIGN, &key_, nullptr, &params, &handle),
              KM_ERROR_VERIFICATION_FAILED);
    EXPECT_EQ(handle, 0u);
    EXPECT_EQ(params.length, 0u);
}

}  // namespace
}  // namespace lumo::test
