// Every answer of a CBOR secure application, to every method that takes one apart.
//
// Input: a byte that picks the method, then the answer. Beyond not crashing: an error leaves the
// outputs as they were, but for a key that was made and cannot be read; success fills what the
// method promises; every byte handed out can be read and is released.

#include <KeymasterUtils.h>

#include <cstring>
#include <iterator>

#include "EnumBits.h"
#include "KeymasterHalDevice.h"
#include "KeymasterSerialize.h"
#include "LogCapture.h"
#include "Outputs.h"
#include "ScriptedTransport.h"

namespace {

using keymasterdevice::errorToWord;
using keymasterdevice::ErrorWord;
using keymasterdevice::KeymasterHalDevice;
using lumo::fuzz::Outputs;
using lumo::test::Bytes;
using lumo::test::ScriptedTransport;

const uint8_t kBytes[] = {0xAA};
const keymaster_key_blob_t kKey = {kBytes, sizeof(kBytes)};
const keymaster_blob_t kData = {kBytes, sizeof(kBytes)};
keymaster_key_param_t kKeySize = keymaster_param_int(KM_TAG_KEY_SIZE, 256);
const keymaster_key_param_set_t kParams = {&kKeySize, 1};

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
bool hasCheck(const Outputs& out) {
    return out.check.front() == 0x99;
}
bool nothing(const Outputs& /*out*/) {
    return true;
}

// The exported reading and writing of one parameter; what was read is written to the same value.
keymaster_error_t readParameter(Outputs& out) {
    const Bytes message = ScriptedTransport::instance().takeReply().response;
    const auto exact = lumo::fuzz::exactCopy(message);
    QCBORDecodeContext decoder;
    QCBORDecode_Init(&decoder, {exact.get(), message.size()}, QCBOR_DECODE_MODE_NORMAL);
    CborReader reader;
    std::memset(&reader, 0xFF, sizeof(reader));
    reader.decoder = &decoder;
    reader.error = 0;
    CR_MAP_ENTER(&reader);
    keymasterutils::KeymasterUtils transport(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
    KeymasterSerialize serialize(&transport);
    out.params = {static_cast<keymaster_key_param_t*>(std::malloc(sizeof(keymaster_key_param_t))),
                  0};
    *out.params.params = {};
    const auto error = errorToWord(serialize.parseParams(&reader, out.params.params));
    if (error == KM_ERROR_OK) {
        out.params.length = 1;
        Bytes room(message.size() + 32);
        QCBOREncodeContext encoder;
        QCBOREncode_Init(&encoder, room.data(), room.size());
        CW_MAP_ENTER(&encoder);
        serialize.addParams(out.params.params, &encoder);
        QCBOREncode_CloseArray(&encoder);
        size_t length = 0;
        REQUIRE(QCBOREncode_Finish(&encoder, &length) == QCBOR_SUCCESS && length <= room.size());
        return KM_ERROR_OK;
    }
    std::free(out.params.params);
    out.params = {nullptr, 0};
    return keymasterdevice::errorFromWord(error);
}

const struct {
    keymaster_error_t (*call)(KeymasterHalDevice& device, Outputs& out);
    bool (*filled)(const Outputs& out);  // after success
    bool reads_key = false;              // reads the characteristics of the answered key
} kMethods[] = {
    {[](auto& d, auto& o) { return d.generate_key(&kParams, &o.key, &o.characteristics); }, isKey,
     true},
    {[](auto& d, auto& o) {
         return d.import_key(&kParams, KM_KEY_FORMAT_RAW, &kData, &o.key, &o.characteristics);
     },
     isKey, true},
    {[](auto& d, auto& o) {
         return d.import_wrapped_key(&kParams, 1, 2, {1}, {2}, {3}, &o.key, &o.characteristics);
     },
     isKey, true},
    {[](auto& d, auto& o) { return d.upgrade_key(&kKey, &kParams, &o.key); }, hasKey},
    {[](auto& d, auto& o) {
         return d.export_key(KM_KEY_FORMAT_X509, &kKey, nullptr, nullptr, &o.data);
     },
     hasData},
    {[](auto& d, auto& o) { return d.attest_key(&kKey, &kParams, &o.chain); }, hasChain},
    {[](auto& d, auto& o) {
         return d.begin_operation(KM_PURPOSE_SIGN, &kKey, &kParams, &o.params, &o.handle);
     },
     nothing},
    {[](auto& d, auto& o) {
         return d.update_operation(1, &kParams, &kData, &o.consumed, &o.params, &o.data);
     },
     nothing},
    {[](auto& d, auto& o) {
         return d.finish_operation(1, &kParams, &kData, &kData, &o.params, &o.data);
     },
     nothing},
    {[](auto& d, auto& o) { return d.get_hmac_sharing_parameters(&o.hmac); }, nothing},
    {[](auto& d, auto& o) { return d.compute_shared_hmac({o.hmac}, o.check); }, hasCheck},
    {[](auto& d, auto&) { return d.configure(&kParams); }, nothing},
    // Without outputs for the answer.
    {[](auto& d, auto& o) {
         return d.begin_operation(KM_PURPOSE_SIGN, &kKey, &kParams, nullptr, &o.handle);
     },
     nothing},
    {[](auto& d, auto& o) {
         return d.update_operation(1, nullptr, &kData, &o.consumed, nullptr, nullptr);
     },
     nothing},
    {[](auto& d, auto&) {
         return d.finish_operation(1, nullptr, &kData, nullptr, nullptr, nullptr);
     },
     nothing},
    {[](auto&, auto& o) { return readParameter(o); }, nothing},
};

void requireUntouched(const Outputs& out, bool may_keep_key) {
    if (!may_keep_key || out.key.key_material == nullptr) {
        REQUIRE(out.key.key_material == nullptr && out.key.key_material_size == 0);
        REQUIRE(out.characteristics.hw_enforced.params == nullptr);
    }
    REQUIRE(out.characteristics.sw_enforced.params == nullptr);
    // The announced number of parameters may stand in `params.length`.
    REQUIRE(out.data.data == nullptr && out.params.params == nullptr);
    REQUIRE(out.chainIsCallers());
    REQUIRE(out.handle == 0 && out.consumed == 0 && out.check.size() == 1);
    for (const uint8_t byte : out.hmac.seed) REQUIRE(byte == 0);
    for (const uint8_t byte : out.hmac.nonce) REQUIRE(byte == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    lumo::fuzz::Input input(data, size);
    const auto& method = kMethods[input.byte() % std::size(kMethods)];
    const lumo::test::LogCapture log;
    ScriptedTransport::instance().reset();
    ScriptedTransport::instance().willReply(input.take<lumo::test::Bytes>(input.size()));

    KeymasterHalDevice device(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
    Outputs out;
    const ErrorWord error = errorToWord(method.call(device, out));
    if (error == KM_ERROR_OK) {
        REQUIRE(method.filled(out));
    } else {
        requireUntouched(out, method.reads_key);
    }
    return 0;
}
