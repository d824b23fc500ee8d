// Every answer of a secure application that takes fixed-layout records, to every method that takes
// one apart; the answers lie behind the request in the shared buffer.
//
// Input: a byte that picks the method, one of switches, two for the size of the key blob sent,
// which narrows the room for the answer, then the answers, each behind its two bytes of length.
// Beyond not crashing: an error leaves the outputs null; success fills what the method promises;
// every byte handed out can be read and is released.

#include <KeymasterBuffer.h>

#include <iterator>

#include "EnumBits.h"
#include "KeymasterHalDevice.h"
#include "LogCapture.h"
#include "Outputs.h"
#include "ScriptedTransport.h"

namespace {

using keymasterdevice::errorFromWord;
using keymasterdevice::errorToWord;
using keymasterdevice::ErrorWord;
using keymasterdevice::KeymasterHalDevice;
using lumo::fuzz::Outputs;
using lumo::test::Bytes;
using lumo::test::ScriptedTransport;

enum Switch : uint8_t {
    kEncodesPublicKeys = 1,  // the secure application, itself
    kVerifies = 2,           // operations verify; otherwise they sign
    kForeignBlob = 4,        // what is sent does not begin as a key blob
    kLinkFails = 8,
    kNoBuffer = 16,
    kNoBufferLater = 32,  // the first exchange has one
    kSendFails = 64,      // the second one
    kStrongBox = 128,
};

// A well-formed ECDSA signature.
const uint8_t kDer[] = {0x30, 0x06, 0x02, 0x01, 0x01, 0x02, 0x01, 0x02};
const keymaster_blob_t kSignature = {kDer, sizeof(kDer)};
keymaster_key_param_t kAlgorithm = keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_AES);
const keymaster_key_param_set_t kParams = {&kAlgorithm, 1};

struct Call {
    KeymasterHalDevice& device;
    const keymaster_key_blob_t& key;
    bool verifies;
    Outputs& out;
};

// Begin, update and finish as a client makes them; `out` has what the last of them gave.
keymaster_error_t operate(Call& c) {
    const keymaster_purpose_t purpose = c.verifies ? KM_PURPOSE_VERIFY : KM_PURPOSE_SIGN;
    uint64_t handle = 0;
    {
        Outputs begun;
        const ErrorWord error = errorToWord(
            c.device.begin_operation(purpose, &c.key, &kParams, &begun.params, &begun.handle));
        if (error != KM_ERROR_OK) {
            REQUIRE(begun.handle == 0 && begun.params.params == nullptr);
            return errorFromWord(error);
        }
        handle = begun.handle;
    }
    const keymaster_blob_t input = {c.key.key_material, c.key.key_material_size};
    {
        Outputs updated;
        const ErrorWord error = errorToWord(c.device.update_operation(
            handle, &kParams, &input, &updated.consumed, &updated.params, &updated.data));
        if (error != KM_ERROR_OK) REQUIRE(updated.data.data == nullptr);
    }
    return c.device.finish_operation(handle, &kParams, &input, c.verifies ? &kSignature : nullptr,
                                     &c.out.params, &c.out.data);
}

bool isKey(const Outputs& out) {
    return out.key.key_material != nullptr && out.hasCharacteristics();
}
bool hasKey(const Outputs& out) {
    return out.key.key_material != nullptr;
}
bool hasData(const Outputs& out) {
    return out.data.data != nullptr;
}
bool hasChain(const Outputs& out) {
    return !out.chainIsCallers();
}
bool nothing(const Outputs& /*out*/) {
    return true;
}
bool never(const Outputs& /*out*/) {
    return false;
}

// Into a builder of the caller's, as large as the key blob.
keymaster_error_t serializeParams(Call& c) {
    Bytes room(c.key.key_material_size);
    auto builder = std::make_unique<keymasterdevice::KeymasterBuffer>(
        room.data(), static_cast<uint32_t>(room.size()));
    keymaster_key_param_t params[] = {kAlgorithm, keymaster_param_blob(KM_TAG_NONCE, kDer, 8)};
    if (c.verifies) builder.reset();
    const ErrorWord error = errorToWord(c.device.params_serialize(builder, params, 2));
    constexpr size_t kTwoRecords = 24;
    REQUIRE((error == KM_ERROR_OK) == (!c.verifies && room.size() >= kTwoRecords + sizeof(kDer)));
    REQUIRE(c.device.params_serialize(builder, nullptr, 2) == KM_ERROR_UNEXPECTED_NULL_POINTER);
    return KM_ERROR_OK;
}

const struct {
    keymaster_error_t (*call)(Call& call);
    bool (*filled)(const Outputs& out);  // after success
} kMethods[] = {
    {[](Call& c) { return c.device.generate_key(&kParams, &c.out.key, &c.out.characteristics); },
     isKey},
    {[](Call& c) {
         const keymaster_blob_t data = {c.key.key_material, c.key.key_material_size};
         return c.device.import_key(&kParams, KM_KEY_FORMAT_RAW, &data, &c.out.key,
                                    &c.out.characteristics);
     },
     isKey},
    {[](Call& c) {
         const Bytes wrapped(c.key.key_material, c.key.key_material + c.key.key_material_size);
         return c.device.import_wrapped_key(&kParams, 1, 2, wrapped, {2}, {3}, &c.out.key,
                                            &c.out.characteristics);
     },
     isKey},
    {[](Call& c) {
         return c.device.get_key_characteristics(&c.key, nullptr, nullptr, &c.out.characteristics);
     },
     [](const Outputs& out) { return out.hasCharacteristics(); }},
    {[](Call& c) { return c.device.upgrade_key(&c.key, &kParams, &c.out.key); }, hasKey},
    {[](Call& c) {
         return c.device.export_key(KM_KEY_FORMAT_X509, &c.key, nullptr, nullptr, &c.out.data);
     },
     hasData},
    {[](Call& c) { return c.device.attest_key(&c.key, &kParams, &c.out.chain); }, hasChain},
    {operate, nothing},
    {[](Call& c) { return c.device.get_hmac_sharing_parameters(&c.out.hmac); }, nothing},
    {[](Call& c) { return c.device.compute_shared_hmac({c.out.hmac}, c.out.check); },
     [](const Outputs& out) { return out.check.front() == 0x99; }},
    {[](Call& c) { return c.device.verifyAuthorization(7, &c.out.token); }, nothing},
    {[](Call& c) { return c.device.get_date_support(&c.out.flag); }, nothing},
    {[](Call& c) { return c.device.delete_key(&c.key); }, nothing},
    // Without outputs for the answer: of the first to the last refused before anything is sent.
    {[](Call& c) { return c.device.generate_key(&kParams, nullptr, nullptr); }, never},
    {[](Call& c) { return c.device.get_key_characteristics(&c.key, nullptr, nullptr, nullptr); },
     never},
    {[](Call& c) {
         return c.device.import_key(&kParams, KM_KEY_FORMAT_RAW, &kSignature, nullptr, nullptr);
     },
     never},
    {[](Call& c) {
         return c.device.import_wrapped_key(&kParams, 1, 2, {1}, {2}, {3}, nullptr, nullptr);
     },
     never},
    {[](Call& c) {
         return c.device.export_key(KM_KEY_FORMAT_X509, &c.key, nullptr, nullptr, nullptr);
     },
     never},
    {[](Call& c) {
         return c.device.begin_operation(KM_PURPOSE_SIGN, &c.key, &kParams, &c.out.params, nullptr);
     },
     never},
    {[](Call& c) {
         return c.device.update_operation(1, &kParams, &kSignature, nullptr, nullptr, nullptr);
     },
     never},
    {[](Call& c) { return c.device.get_hmac_sharing_parameters(nullptr); }, never},
    {[](Call& c) { return c.device.verifyAuthorization(7, nullptr); }, never},
    {[](Call& c) { return c.device.get_date_support(nullptr); }, never},
    {[](Call& c) {
         return c.device.SetRot(nullptr, nullptr, true, nullptr, KM_BOOT_STATE_GREEN, 1, 2);
     },
     never},
    // Without a place for what an operation gives.
    {[](Call& c) {
         return c.device.begin_operation(KM_PURPOSE_SIGN, &c.key, &kParams, nullptr, &c.out.handle);
     },
     nothing},
    {[](Call& c) {
         return c.device.update_operation(1, nullptr, nullptr, &c.out.consumed, nullptr, nullptr);
     },
     nothing},
    {[](Call& c) {
         return c.device.finish_operation(1, nullptr, nullptr, nullptr, nullptr, nullptr);
     },
     nothing},
    {[](Call& c) {
         uint8_t root[32] = {};
         uint8_t state[4] = {};
         return c.device.SetRot(root, nullptr, c.verifies, state, KM_BOOT_STATE_RED, 1, 2);
     },
     nothing},
    {serializeParams, nothing},
};

void requireNull(const Outputs& out) {
    REQUIRE(out.key.key_material == nullptr && out.data.data == nullptr);
    REQUIRE(out.characteristics.sw_enforced.params == nullptr);
    REQUIRE(out.params.params == nullptr && out.params.length == 0);
    REQUIRE(out.chainIsCallers() || out.chain.entries == nullptr);
    REQUIRE(out.check.size() == 1);
}

void script(uint8_t switches, lumo::fuzz::Input& input) {
    ScriptedTransport& transport = ScriptedTransport::instance();
    transport.reset();
    transport.legacy = true;
    const bool encodes = (switches & kEncodesPublicKeys) != 0;
    transport.keymaster_version = encodes ? 4 : 3;
    transport.ta_minor_version = encodes ? 113 : 112;
    transport.hal_minor_version = encodes ? 1 : 0;
    if ((switches & kLinkFails) != 0) transport.hsm_result = KM_ERROR_SECURE_HW_ACCESS_DENIED;
    if ((switches & kNoBufferLater) != 0) transport.shared_buffers = 1;
    if ((switches & kNoBuffer) != 0) transport.shared_buffers = 0;
    while (input.size() != 0) transport.willReply(input.take<Bytes>(input.twoBytes()));
    if ((switches & kSendFails) != 0 && transport.replies.size() > 1) {
        transport.replies[1].result = KM_ERROR_INVALID_ARGUMENT;
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    lumo::fuzz::Input input(data, size);
    const auto& method = kMethods[input.byte() % std::size(kMethods)];
    const uint8_t switches = input.byte();
    // The clear part of a key blob of version 4.0 without authorizations, longer than the shared
    // buffer where asked.
    Bytes blob = lumo::test::words({0x4B4D4B44, 0, 0, 4});
    blob.resize(blob.size() + input.twoBytes());
    if ((switches & kForeignBlob) != 0) blob[0] = 0;
    const keymaster_key_blob_t key = {blob.data(), blob.size()};
    const lumo::test::LogCapture log;
    script(switches, input);

    KeymasterHalDevice device((switches & kStrongBox) != 0 ? KM_SECURITY_LEVEL_STRONGBOX
                                                           : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
    Outputs out;
    Call call = {device, key, (switches & kVerifies) != 0, out};
    if (method.call(call) == KM_ERROR_OK) {
        REQUIRE(method.filled(out));
    } else {
        requireNull(out);
    }
    return 0;
}
