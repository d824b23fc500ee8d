// Operations: caps, labels, nonces, and the conversion of ECDSA signatures by the purpose map.

#include "LegacyDevice.h"

namespace lumo::test {
namespace {

constexpr uint32_t kRefused = static_cast<uint32_t>(KM_ERROR_VERIFICATION_FAILED);
constexpr uint64_t kHandle = 0x1122334455667788;
constexpr uint32_t kLow = 0x55667788;
constexpr uint32_t kHigh = 0x11223344;

// An ECDSA-Sig-Value of r = 5 and s = 7, and the same as 32 bytes each.
const Bytes& derSignature() {
    static const Bytes der = hex("3006 020105 020107");
    return der;
}
Bytes rawSignature() {
    return fill(31, 0) + hex("05") + fill(31, 0) + hex("07");
}

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
        const bool sent_as_is = wordAt(request(), 8) == derSignature().size();
        const bool returned_as_is = bytesOf(out.data) == raw_;
        EXPECT_TRUE(returned_as_is || bytesOf(out.data) == derSignature());
        device_.abort_operation(kHandle);
        return !sent_as_is ? kToVerify : returned_as_is ? kNot : kToSign;
    }

    const Bytes raw_ = rawSignature() + hex("99");  // an odd last byte is dropped
    const Bytes key_bytes_ = fill(4, 1);
    const keymaster_key_blob_t key_ = keyOf(key_bytes_);
    const keymaster_blob_t signature_ = blobOf(derSignature());
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
    for (auto* device : {&device_, &strongbox_}) {
        const uint32_t cap = device == &device_ ? 16384 : 18432;
        Outputs out;
        script().willReply(words({0, 0, 0, 0, 77}));
        EXPECT_EQ(device->update_operation(1, nullptr, &input, &out.consumed, nullptr, nullptr),
                  KM_ERROR_OK);
        EXPECT_EQ(out.consumed, 77u);
        EXPECT_EQ(wordAt(request(), 6), cap);
        ASSERT_EQ(request().size(), 28 + cap);
        EXPECT_EQ(wordAt(script().lastSent().response_before, 2), 20u);
        EXPECT_EQ(wordAt(script().lastSent().response_before, 3), kSharedBytes - 28 - cap - 20);

        script().willReply(words({0, 0, 0, 0}));
        EXPECT_EQ(device->finish_operation(1, nullptr, &input, nullptr, nullptr, nullptr),
                  KM_ERROR_OK);
        ASSERT_EQ(request().size(), 36 + cap);
        EXPECT_EQ(wordAt(script().lastSent().response_before, 2), 16u);
        EXPECT_EQ(wordAt(script().lastSent().response_before, 3), kSharedBytes - 36 - cap - 16);
    }
}

TEST_F(LegacyOperations, UpdateHandsOutWhatTheResponseHolds) {
    keymaster_key_param_t stale = {};
    const auto update = [&](const Bytes& response, Outputs& out, keymaster_blob_t* output) {
        script().willReply(response);
        out.params = {&stale, 1};
        out.data = {key_bytes_.data(), 4};
        return device_.update_operation(1, nullptr, nullptr, &out.consumed, &out.params, output);
    };
    const struct {
        Bytes response;
        bool has_place;
        keymaster_error_t result;
        uint32_t consumed;
        Bytes output;
    } cases[] = {
        {words({0, 0, 24, 2, 5, 0}) + hex("a1a2"), true, KM_ERROR_OK, 5, hex("a1a2")},
        {words({0, 0, 24, 2, 5, 0}), false, KM_ERROR_OUTPUT_PARAMETER_NULL, 5, key_bytes_},
        {words({0, 0, 0, 2, 6}), true, KM_ERROR_OK, 6, {}},
        {words({0, 0, 20, 0, 7}), true, KM_ERROR_OK, 7, {}},
        {words({kRefused, 0, 24, 2, 8}), true, KM_ERROR_VERIFICATION_FAILED, 8, {}},
    };
    for (const auto& c : cases) {
        Outputs out;
        EXPECT_EQ(update(c.response, out, c.has_place ? &out.data : nullptr), c.result);
        EXPECT_EQ(out.consumed, c.consumed);
        EXPECT_EQ(bytesOf(out.data), c.output);
        EXPECT_EQ(out.params.length, c.has_place ? 0u : 1u);
        out.params = {};
        if (!c.has_place) out.data = {};
    }
}

TEST_F(LegacyOperations, BeginHandsOutTheNonceOrAbortsTheOperation) {
    const auto response = [](uint32_t nonce_bytes) {
        return words({0, 0, kLow, kHigh, KM_ALGORITHM_AES}) + fill(16, 0x5A) + words({nonce_bytes});
    };
    Outputs out;
    script().willReply(response(12));
    EXPECT_EQ(device_.begin_operation(KM_PURPOSE_ENCRYPT, &key_, nullptr, &out.params, &out.handle),
              KM_ERROR_OK);
    ASSERT_EQ(out.params.length, 1u);
    EXPECT_EQ(out.params.params[0].tag, KM_TAG_NONCE);
    EXPECT_EQ(bytesOf(out.params.params[0].blob), fill(12, 0x5A));
    EXPECT_EQ(out.handle, kHandle);

    // No place for a nonce, a nonce longer than the shared buffer, a place but no nonce.
    const struct {
        uint32_t nonce_bytes;
        keymaster_key_param_set_t* place;
        keymaster_error_t result;
    } cases[] = {
        {12, nullptr, KM_ERROR_OUTPUT_PARAMETER_NULL},
        {kSharedBytes, &out.params, KM_ERROR_UNKNOWN_ERROR},
        {0, &out.params, KM_ERROR_OK},
        {0, nullptr, KM_ERROR_OK},
    };
    for (const auto& c : cases) {
        restart();
        out.release();
        uint64_t handle = 3;
        script().willReply(response(c.nonce_bytes));
        script().willReply(words({0}));
        EXPECT_EQ(device_.begin_operation(KM_PURPOSE_ENCRYPT, &key_, nullptr, c.place, &handle),
                  c.result);
        const bool aborted = c.result != KM_ERROR_OK;
        EXPECT_EQ(handle, aborted ? 3 : kHandle);
        EXPECT_EQ(script().sentCount(), aborted ? 2u : 1u);
        EXPECT_EQ(request() == words({0x113, kLow, kHigh}), aborted);
    }

    // A refused begin clears both outputs.
    restart();
    keymaster_key_param_t stale = {};
    out.params = {&stale, 1};
    script().willReply(words({kRefused}));
    EXPECT_EQ(device_.begin_operation(KM_PURPOSE_SIGN, &key_, nullptr, &out.params, &out.handle),
              KM_ERROR_VERIFICATION_FAILED);
    EXPECT_EQ(out.handle, 0u);
    EXPECT_EQ(out.params.params, nullptr);
    EXPECT_EQ(out.params.length, 0u);
}

}  // namespace
}  // namespace lumo::test
